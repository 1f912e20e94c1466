#include "policy/web_filter_storage_data_stream.h"

#include <limits>

#include "policy/utf16le.h"

namespace sentrel {

std::uint32_t CWebFilterStorageDataStream::GetSize() {
    if (!stream_) {
        return 0;
    }
    return static_cast<std::uint32_t>(stream_->Size().value_or(0));
}

bool CWebFilterStorageDataStream::OpenRead(const std::u16string& path) {
    stream_.reset();
    stream_ = path.empty() ? CreateMemoryStream() : OpenFileForRead(path);
    return stream_ != nullptr;
}

bool CWebFilterStorageDataStream::OpenWrite(const std::u16string& path) {
    stream_.reset();
    stream_ = path.empty() ? CreateMemoryStream() : OpenFileForWrite(path);
    return stream_ != nullptr;
}

bool CWebFilterStorageDataStream::ReadBuffer(std::vector<std::uint8_t>& buffer,
                                             std::uint32_t& size) {
    size = GetSize();
    // Two zero bytes past the content terminate it as UTF-16 text.
    buffer.assign(std::size_t{size} + 2, 0);
    return ReadWhole(std::span(buffer.data(), size));
}

std::u16string CWebFilterStorageDataStream::ReadText() {
    const std::uint32_t size = GetSize();
    // The content goes straight into the text. An odd last byte pairs with a zero byte, as a
    // zero-terminated read of the content would take it; nothing past the content is read.
    std::u16string text((std::size_t{size} + 1) / 2, u'\0');
    if (!ReadWhole(AsWritableUtf16LeBytes(text.data(), text.size()).first(size))) {
        return {};
    }
    if (const std::size_t end = text.find(u'\0'); end != std::u16string::npos) {
        text.resize(end);
    }
    return text;
}

bool CWebFilterStorageDataStream::WriteBuffer(const std::uint8_t* data, std::uint32_t size) {
    if (!OpenRead({})) {
        return false;
    }
    if (!stream_->Write(std::span(data, size))) {
        return false;
    }
    return stream_->SeekToStart();
}

bool CWebFilterStorageDataStream::WriteText(const std::u16string& text) {
    if (text.size() > std::numeric_limits<std::uint32_t>::max() / 2) {
        return false;
    }
    const auto bytes = AsUtf16LeBytes(text);
    return WriteBuffer(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

bool CWebFilterStorageDataStream::ReadWhole(std::span<std::uint8_t> content) {
    return stream_ && stream_->SeekToStart() && stream_->Read(content) == content.size();
}

}  // namespace sentrel

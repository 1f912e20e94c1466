#include "policy_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <ios>
#include <ostream>

#include "policy/guid.h"
#include "policy/utf16le.h"
#include "policy/web_filter_xml_processor.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

// How much of a UTF-8 file is decoded at a time.
constexpr std::size_t kPieceBytes = 64 * 1024;

}  // namespace

std::shared_ptr<PolicyDocument> PolicyDocument::Open(const std::string& path, std::string& error) {
    std::shared_ptr<ByteStream> file = OpenFileForRead(Utf8ToUtf16(path));
    if (!file) {
        error = "cannot open " + path + ": " + std::strerror(errno);
        return nullptr;
    }
    auto document = std::make_shared<PolicyDocument>(std::move(file));
    if (!document->Start()) {
        error = "cannot read " + path;
        return nullptr;
    }
    if (document->utf16_ && document->file_->Size().value_or(0) % 2 != 0) {
        error = path + " is not UTF-16: its length is odd";
        return nullptr;
    }
    return document;
}

PolicyDocument::PolicyDocument(std::shared_ptr<ByteStream> file) : file_(std::move(file)) {}

bool PolicyDocument::Start() {
    std::array<std::uint8_t, 3> start{};
    const std::size_t got = ReadFile(start);
    utf16_ = got >= 2 && start[0] == 0xFF && start[1] == 0xFE;
    const bool utf8Mark = got == 3 && start == std::array<std::uint8_t, 3>{0xEF, 0xBB, 0xBF};
    markSize_ = utf16_ ? 2 : utf8Mark ? 3 : 0;
    return !failed_ && SeekToStart();
}

std::optional<std::uint64_t> PolicyDocument::Size() {
    // Decoding UTF-8 is the only way to learn how long its UTF-16 form is.
    const std::optional<std::uint64_t> size = utf16_ ? file_->Size() : std::nullopt;
    if (!size || *size < markSize_) {
        return std::nullopt;
    }
    return *size - markSize_;
}

bool PolicyDocument::SeekToStart() {
    raw_.clear();
    units_.clear();
    taken_ = 0;
    ended_ = false;
    failed_ = false;
    std::array<std::uint8_t, 3> mark{};
    return file_->SeekToStart() && ReadFile(std::span(mark).first(markSize_)) == markSize_;
}

std::size_t PolicyDocument::Read(std::span<std::uint8_t> buffer) {
    if (utf16_) {
        return ReadFile(buffer);
    }
    std::size_t total = 0;
    while (total < buffer.size()) {
        const std::span<const std::uint8_t> decoded = AsUtf16LeBytes(units_).subspan(taken_);
        if (decoded.empty()) {
            if (!DecodePiece()) {
                break;
            }
            continue;
        }
        const std::size_t count = std::min(decoded.size(), buffer.size() - total);
        std::copy_n(decoded.begin(), count, buffer.begin() + static_cast<std::ptrdiff_t>(total));
        total += count;
        taken_ += count;
    }
    return total;
}

bool PolicyDocument::Write(std::span<const std::uint8_t>) {
    return false;
}

std::size_t PolicyDocument::ReadFile(std::span<std::uint8_t> buffer) {
    try {
        return file_->Read(buffer);
    } catch (const std::ios_base::failure&) {
        // The file buffer reports a failing read (a folder, a device error) by throwing.
        failed_ = true;
        return 0;
    }
}

bool PolicyDocument::DecodePiece() {
    if (ended_) {
        return false;
    }
    // Bytes of a sequence that the last piece cut short come first.
    const std::size_t kept = raw_.size();
    raw_.resize(kept + kPieceBytes);
    const std::size_t got =
        ReadFile({reinterpret_cast<std::uint8_t*>(raw_.data()) + kept, kPieceBytes});
    raw_.resize(kept + got);
    ended_ = got < kPieceBytes;
    units_.clear();
    taken_ = 0;
    raw_.erase(0, AppendUtf8AsUtf16(raw_, ended_, units_));
    return true;
}

std::string ReadPolicy(const std::string& path, WebFilterPolicy& policy) {
    std::string error;
    const std::shared_ptr<PolicyDocument> document = PolicyDocument::Open(path, error);
    if (!document) {
        return error;
    }
    WebFilterXmlProcessor processor(&policy, document);
    if (!processor.OpenReader({}) || !processor.ReadDocument({})) {
        return "cannot read the policy in " + path;
    }
    return document->Failed() ? "cannot read " + path : std::string();
}

PolicyFile ReadPolicyFile(const std::string& path) {
    PolicyFile result;
    const std::shared_ptr<PolicyDocument> document = PolicyDocument::Open(path, result.error);
    if (!document) {
        return result;
    }
    std::size_t bytes = 0;
    for (;;) {
        result.text.resize(result.text.size() + kPieceBytes);
        const std::span<std::uint8_t> room =
            AsWritableUtf16LeBytes(result.text.data(), result.text.size()).subspan(bytes);
        const std::size_t got = document->Read(room);
        bytes += got;
        if (got < room.size()) {
            break;
        }
    }
    result.text.resize(bytes / sizeof(char16_t));
    if (document->Failed()) {
        result.error = "cannot read " + path;
    }
    return result;
}

std::string DocumentBytes(std::u16string_view document, bool utf8) {
    if (utf8) {
        return Utf16ToUtf8(document.substr(1));
    }
    const std::span<const std::uint8_t> bytes = AsUtf16LeBytes(document);
    return {bytes.begin(), bytes.end()};
}

std::string WriteBytes(const std::string& path, const std::string& bytes,
                       std::ostream& standardOut) {
    if (path == "-") {
        standardOut.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        standardOut.flush();
        return standardOut ? std::string() : "cannot write standard output";
    }
    const std::filesystem::path target(Utf8ToUtf16(path));
    std::filesystem::path temporary = target;
    temporary += u".";
    temporary += GuidToText(NewGuid());
    temporary += u".tmp";
    std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
    if (!file) {
        return "cannot open " + path + " for writing: " + std::strerror(errno);
    }
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    std::error_code error;
    if (file) {
        std::filesystem::rename(temporary, target, error);
    }
    if (!file || error) {
        std::filesystem::remove(temporary, error);
        return "cannot write " + path;
    }
    return {};
}

}  // namespace sentrel::cli

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <ios>
#include <limits>

#include "policy/byte_stream.h"

namespace sentrel {
namespace {

// A file through the standard library's file buffer, whose one position serves reads and writes.
class FileStream final : public ByteStream {
  public:
    bool Open(const std::u16string& path, std::ios::openmode mode) {
        try {
            return file_.open(std::filesystem::path(path), mode | std::ios::binary) != nullptr;
        } catch (...) {
            // A path that cannot be converted to the platform's form names no file.
            return false;
        }
    }

    std::optional<std::uint64_t> Size() override {
        const std::streampos position = file_.pubseekoff(0, std::ios::cur);
        const std::streampos end = file_.pubseekoff(0, std::ios::end);
        if (position == kFailed || end == kFailed || file_.pubseekpos(position) == kFailed) {
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(static_cast<std::streamoff>(end));
    }

    bool SeekToStart() override { return file_.pubseekpos(0) != kFailed; }

    std::size_t Read(std::span<std::uint8_t> buffer) override {
        std::size_t total = 0;
        // sgetn takes a signed count: large buffers go in pieces.
        while (total < buffer.size()) {
            const std::streamsize piece = static_cast<std::streamsize>(
                std::min<std::size_t>(buffer.size() - total, kLargestPiece));
            const std::streamsize got =
                file_.sgetn(reinterpret_cast<char*>(buffer.data() + total), piece);
            if (got <= 0) {
                break;
            }
            total += static_cast<std::size_t>(got);
        }
        return total;
    }

    bool Write(std::span<const std::uint8_t> data) override {
        std::size_t total = 0;
        while (total < data.size()) {
            const std::streamsize piece = static_cast<std::streamsize>(
                std::min<std::size_t>(data.size() - total, kLargestPiece));
            if (file_.sputn(reinterpret_cast<const char*>(data.data() + total), piece) != piece) {
                return false;
            }
            total += static_cast<std::size_t>(piece);
        }
        return file_.pubsync() == 0;
    }

  private:
    static constexpr std::size_t kLargestPiece = 1u << 30;
    static inline const std::streampos kFailed{std::streamoff(-1)};

    std::filebuf file_;
};

std::shared_ptr<ByteStream> OpenFile(const std::u16string& path, std::ios::openmode mode) {
    auto stream = std::make_shared<FileStream>();
    if (!stream->Open(path, mode)) {
        return nullptr;
    }
    return stream;
}

}  // namespace

std::shared_ptr<ByteStream> OpenFileForRead(const std::u16string& path) {
    return OpenFile(path, std::ios::in);
}

std::shared_ptr<ByteStream> OpenFileForWrite(const std::u16string& path) {
    return OpenFile(path, std::ios::out | std::ios::trunc);
}

}  // namespace sentrel

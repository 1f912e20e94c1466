#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace sentrel {

// A positioned sequence of bytes that the policy's storage, XML reader and XML writer share.
// Every operation reports failure by its result and throws nothing of its own.
class ByteStream {
  public:
    virtual ~ByteStream() = default;

    // The number of bytes the stream holds, or none when it cannot be determined.
    virtual std::optional<std::uint64_t> Size() = 0;
    virtual bool SeekToStart() = 0;
    // Reads up to buffer.size() bytes from the position on and returns how many were read: fewer
    // only at the end of the stream or on a read error.
    virtual std::size_t Read(std::span<std::uint8_t> buffer) = 0;
    // Writes all bytes at the position; false when not all of them could be written.
    virtual bool Write(std::span<const std::uint8_t> data) = 0;
};

// An empty in-memory stream that grows as it is written.
std::shared_ptr<ByteStream> CreateMemoryStream();

// A file opened for reading, or none when it cannot be opened.
std::shared_ptr<ByteStream> OpenFileForRead(const std::u16string& path);

// A file opened for writing, created or cut to zero length, or none when that fails.
std::shared_ptr<ByteStream> OpenFileForWrite(const std::u16string& path);

}  // namespace sentrel

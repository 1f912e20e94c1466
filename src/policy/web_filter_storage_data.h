#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "policy/byte_stream.h"

namespace sentrel {

// Holds the one byte stream a policy document is read from or written to, and moves whole texts
// into and out of it. Failures are reported by results (false, 0 or the empty text).
class IWebFilterStorageData {
  public:
    // The held stream's size cut to 32 bits; 0 without a stream or when the size is unknown.
    virtual std::uint32_t GetSize() = 0;
    // The held stream, or none; callers that keep it take their own reference.
    virtual const std::shared_ptr<ByteStream>& GetStream() = 0;
    // Replaces the held stream: the file at path opened for reading, or for an empty path a new
    // in-memory stream.
    virtual bool OpenRead(const std::u16string& path) = 0;
    // The same with the file opened for writing, created or cut to zero length.
    virtual bool OpenWrite(const std::u16string& path) = 0;
    // Hands out GetSize() bytes plus two zero bytes as buffer before anything can fail, then
    // reads the whole stream from its start into it; true only when every byte was read.
    virtual bool ReadBuffer(std::vector<std::uint8_t>& buffer, std::uint32_t& size) = 0;
    // The whole content as UTF-16LE text, up to its first zero code unit; empty on failure.
    virtual std::u16string ReadText() = 0;
    // Replaces the held stream by a new in-memory stream holding exactly data, positioned at its
    // start.
    virtual bool WriteBuffer(const std::uint8_t* data, std::uint32_t size) = 0;
    // WriteBuffer of the text's UTF-16LE code units, with no terminator or byte order mark.
    virtual bool WriteText(const std::u16string& text) = 0;
    virtual ~IWebFilterStorageData() = default;
};

}  // namespace sentrel

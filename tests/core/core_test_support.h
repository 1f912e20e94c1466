#pragma once

// What several of the core's tests use: readable text, XML input and files.

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "policy/byte_stream.h"
#include "policy/utf16le.h"

namespace sentrel::test {

// Printable ASCII as it is, everything else as \uXXXX, so that failures read well.
inline std::string Readable(std::u16string_view text) {
    std::string result;
    for (const char16_t ch : text) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04X", static_cast<unsigned>(ch));
        result += ch >= 0x20 && ch < 0x7F ? std::string(1, static_cast<char>(ch)) : escaped;
    }
    return result;
}

// A memory stream holding the text as UTF-16LE, positioned at its start.
inline std::shared_ptr<ByteStream> StreamOf(std::u16string_view text) {
    auto stream = CreateMemoryStream();
    stream->Write(AsUtf16LeBytes(text));
    stream->SeekToStart();
    return stream;
}

// A file in the temporary directory, removed when the test ends.
struct TemporaryFile {
    std::filesystem::path path;
    explicit TemporaryFile(const std::u16string& name)
        : path(std::filesystem::temp_directory_path() / std::filesystem::path(name)) {
        std::filesystem::remove(path);
    }
    ~TemporaryFile() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    std::u16string Path() const { return path.u16string(); }
};

}  // namespace sentrel::test

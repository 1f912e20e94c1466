#pragma once

#include <iosfwd>
#include <string>

namespace sentrel::cli {

// A policy document read from a file: UTF-16LE when it starts with the byte order mark FF FE,
// else UTF-8 (a UTF-8 byte order mark is skipped). Either way the text comes back as UTF-16
// without a byte order mark.
struct PolicyFile {
    std::u16string text;
    std::string error;  // empty on success
};
PolicyFile ReadPolicyFile(const std::string& path);

// Writes the bytes to the file, or to the output stream for "-"; an error text on failure.
std::string WriteBytes(const std::string& path, const std::string& bytes,
                       std::ostream& standardOut);

}  // namespace sentrel::cli

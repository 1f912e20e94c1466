#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "policy/byte_stream.h"
#include "policy/web_filter_policy.h"

namespace sentrel::cli {

// A policy file is UTF-16LE when it starts with the byte order mark FF FE, else UTF-8 (a UTF-8
// byte order mark is skipped). Either way its document comes out as UTF-16LE bytes without the
// file's byte order mark, taken from the file piece by piece as they are read, so that a large
// policy is never held whole. A file that fails while it is read ends its document early and
// says so through Failed.
class PolicyDocument final : public ByteStream {
  public:
    // The document of the file at path; none with an error text when it cannot be opened or read,
    // or is not UTF-16 although it says so.
    static std::shared_ptr<PolicyDocument> Open(const std::string& path, std::string& error);

    explicit PolicyDocument(std::shared_ptr<ByteStream> file);

    // Known for UTF-16LE files only.
    std::optional<std::uint64_t> Size() override;
    bool SeekToStart() override;
    std::size_t Read(std::span<std::uint8_t> buffer) override;
    bool Write(std::span<const std::uint8_t> data) override;

    bool Failed() const { return failed_; }

  private:
    // Learns the encoding from the file's first bytes and goes to the document's start.
    bool Start();
    // The file's Read, with a failure taken as the end.
    std::size_t ReadFile(std::span<std::uint8_t> buffer);
    // Decodes the next piece of a UTF-8 file into units_; false once the file has ended.
    bool DecodePiece();

    std::shared_ptr<ByteStream> file_;
    bool utf16_ = false;
    std::size_t markSize_ = 0;  // the byte order mark's bytes at the file's start
    bool failed_ = false;
    bool ended_ = false;
    std::string raw_;        // bytes of the file read but not yet decoded
    std::u16string units_;   // decoded code units
    std::size_t taken_ = 0;  // bytes of units_ already read
};

// Reads the policy file at path into policy as the component reads a document; an error text
// on failure.
std::string ReadPolicy(const std::string& path, WebFilterPolicy& policy);

// The whole document of a policy file as text; an error text instead when it cannot be read.
struct PolicyFile {
    std::u16string text;
    std::string error;  // empty on success
};
PolicyFile ReadPolicyFile(const std::string& path);

// The bytes of a serialized document (which begins with its byte order mark): UTF-16LE as the
// component writes it, or UTF-8 without a byte order mark.
std::string DocumentBytes(std::u16string_view document, bool utf8);

// Writes the bytes to the file, or to the output stream for "-"; an error text on failure. A file
// is written under a name of its own beside it and then renamed, so that a failure leaves no
// partial file behind.
std::string WriteBytes(const std::string& path, const std::string& bytes,
                       std::ostream& standardOut);

}  // namespace sentrel::cli

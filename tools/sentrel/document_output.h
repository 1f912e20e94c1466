#pragma once

#include <filesystem>
#include <iosfwd>
#include <memory>
#include <string>

#include "policy/byte_stream.h"
#include "policy/web_filter_policy.h"

namespace sentrel::cli {

// Where a command writes a document as the writer hands it over, UTF-16LE bytes after a byte
// order mark, piece by piece: as they are, or as UTF-8 without the mark. Standard output takes
// them as they come; a file is written under a name of its own beside it and takes its name only
// once the document is complete, so that a failure at any point leaves no partial file.
class DocumentOutput final : public ByteStream {
  public:
    // The output for path, "-" for standard output; none with an error text when the file cannot
    // be created.
    static std::shared_ptr<DocumentOutput> Open(const std::string& path, bool utf8,
                                                std::ostream& standardOut, std::string& error);

    DocumentOutput(const std::string& path, bool utf8, std::ostream& standardOut);
    // Removes the file unless Finish gave it its name.
    ~DocumentOutput() override;
    DocumentOutput(const DocumentOutput&) = delete;
    DocumentOutput& operator=(const DocumentOutput&) = delete;

    // Written to only.
    std::optional<std::uint64_t> Size() override { return std::nullopt; }
    bool SeekToStart() override { return false; }
    std::size_t Read(std::span<std::uint8_t>) override { return 0; }
    bool Write(std::span<const std::uint8_t> data) override;

    // Whether some bytes could not be written.
    bool Failed() const { return failed_; }
    // Ends the document: the file takes its name. An error text when that or an earlier write
    // failed.
    std::string Finish();

  private:
    // Converts the bytes held so far, all of them when final, else all but a code unit or
    // surrogate pair that the piece cut short.
    bool Convert(bool final);
    bool Put(std::string_view bytes);

    std::string path_;
    bool utf8_;
    std::ostream& standardOut_;
    std::filesystem::path temporary_;  // empty for standard output, or once renamed
    std::shared_ptr<ByteStream> file_;
    bool failed_ = false;
    bool started_ = false;  // the byte order mark has gone by
    std::string held_;      // bytes not yet converted
    std::u16string units_;
};

// Writes the policy's document to path ("-" for standard output) as the component writes it, or
// as UTF-8 without a byte order mark; an error text on failure, which leaves no file.
std::string WritePolicyDocument(const WebFilterPolicy& policy, const std::string& path, bool utf8,
                                std::ostream& standardOut);

}  // namespace sentrel::cli

#pragma once

#include <istream>
#include <string>

namespace sentrel::cli {

// Reads a stream in blocks of whole lines, so that each block can be answered on its own. A
// block takes what the stream holds without waiting, up to a size that keeps writes large; it
// waits only for its first line.
class LineBlocks {
  public:
    explicit LineBlocks(std::istream& in) : in_(in) {}

    // Whether the next block can be had without waiting for the stream.
    bool Ready() const;
    // Replaces lines with the next block: whole lines, each with its line end, except that the
    // stream's last line need not have one. False once the stream is exhausted.
    bool Next(std::string& lines);

  private:
    // Reads up to count bytes that the stream holds, waiting only when it holds none; 0 at its
    // end.
    std::size_t Take(char* data, std::size_t count);

    std::istream& in_;
    std::string rest_;  // the start of a line that the last block did not take
    bool ended_ = false;
};

}  // namespace sentrel::cli

#include "line_blocks.h"

#include <string_view>

namespace sentrel::cli {

namespace {

// Blocks this large keep the threads' hand-overs and the writes few.
constexpr std::size_t kBlockBytes = 64 * 1024;

}  // namespace

bool LineBlocks::Ready() const {
    // -1 says the stream has ended, which needs no wait either.
    return ended_ || in_.rdbuf()->in_avail() != 0;
}

bool LineBlocks::Next(std::string& lines) {
    lines.swap(rest_);
    rest_.clear();
    std::size_t lastEnd = std::string::npos;
    while (!ended_ && (lastEnd == std::string::npos || (lines.size() < kBlockBytes && Ready()))) {
        const std::size_t have = lines.size();
        lines.resize(have + kBlockBytes);
        const std::size_t got = Take(lines.data() + have, kBlockBytes);
        lines.resize(have + got);
        ended_ = got == 0;
        // What came before holds no line end: only the new bytes are searched.
        if (const std::size_t end = std::string_view(lines).substr(have).rfind('\n');
            end != std::string::npos) {
            lastEnd = have + end;
        }
    }
    if (lastEnd != std::string::npos) {
        rest_.assign(lines, lastEnd + 1);
        lines.resize(lastEnd + 1);
    }
    return !lines.empty();
}

std::size_t LineBlocks::Take(char* data, std::size_t count) {
    const auto size = static_cast<std::streamsize>(count);
    if (const std::streamsize got = in_.readsome(data, size); got > 0) {
        return static_cast<std::size_t>(got);
    }
    // Nothing is held: wait until the stream brings more, or ends.
    if (std::istream::traits_type::eq_int_type(in_.peek(), std::istream::traits_type::eof())) {
        return 0;
    }
    return static_cast<std::size_t>(in_.readsome(data, size));
}

}  // namespace sentrel::cli

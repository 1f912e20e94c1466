#include "check_urls.h"

#include <deque>
#include <future>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "line_blocks.h"
#include "task_threads.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

// Blocks waiting to be decided or written, per thread: enough that no thread waits for the
// writer.
constexpr std::size_t kBlocksPerThread = 2;

// Lines of standard input and their answers.
struct Block {
    std::string lines;
    std::string answers;
    bool decided = true;  // false: the answers end before a URL that could not be decided
};

// Appends the URL's answer line; false when it could not be decided. The UTF-16 form goes
// through the caller's buffer, which keeps its memory from one URL to the next.
bool Answer(std::string_view url, const UrlDecision& decide, std::u16string& wide,
            std::string& answers) {
    wide.clear();
    AppendUtf8AsUtf16(url, true, wide);
    const std::optional<bool> allowed = decide(wide);
    if (!allowed) {
        return false;
    }
    answers.append(*allowed ? "allow\t" : "deny\t").append(url).push_back('\n');
    return true;
}

void AnswerLines(Block& block, const UrlDecision& decide) {
    std::u16string wide;
    block.answers.clear();
    block.decided = true;
    std::string_view rest = block.lines;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        // A line end written as CR LF leaves the CR, which is no part of the URL.
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (!Answer(line, decide, wide, block.answers)) {
            block.decided = false;
            return;
        }
    }
}

void Write(std::ostream& out, const std::string& bytes) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Answers the lines of standard input, blocks of them on the threads at once, and writes the
// answers block by block in input order; false when a URL could not be decided. Before waiting
// for input it writes every answer it can, so that a client that feeds one URL at a time and
// waits for its answer is served.
bool AnswerInput(CommandStreams& streams, unsigned jobs, const UrlDecision& decide) {
    LineBlocks input(streams.in);
    std::deque<std::pair<std::unique_ptr<Block>, std::future<void>>> pending;
    std::vector<std::unique_ptr<Block>> spare;
    // Declared last, so that its threads are done before the blocks they work on go.
    TaskThreads threads(jobs > 1 ? jobs : 0);
    const std::size_t most = std::max<std::size_t>(1, kBlocksPerThread * threads.Count());
    bool more = true;
    for (;;) {
        if (more && pending.size() < most && (pending.empty() || input.Ready())) {
            if (pending.empty()) {
                streams.out.flush();
            }
            std::unique_ptr<Block> block;
            if (spare.empty()) {
                block = std::make_unique<Block>();
            } else {
                block = std::move(spare.back());
                spare.pop_back();
            }
            more = input.Next(block->lines);
            if (more) {
                std::future<void> done =
                    threads.Run([&decide, &answered = *block] { AnswerLines(answered, decide); });
                pending.emplace_back(std::move(block), std::move(done));
            }
            continue;
        }
        if (pending.empty()) {
            return true;
        }
        auto& [block, done] = pending.front();
        done.get();
        Write(streams.out, block->answers);
        if (!block->decided || !streams.out) {
            return block->decided;
        }
        spare.push_back(std::move(block));
        pending.pop_front();
    }
}

}  // namespace

int CheckUrls(const Arguments& arguments, CommandStreams& streams, unsigned jobs,
              const UrlDecision& decide) {
    bool decided = true;
    if (!arguments.positionals.empty()) {
        std::u16string wide;
        std::string answers;
        for (const std::string& url : arguments.positionals) {
            decided = Answer(url, decide, wide, answers);
            if (!decided) {
                break;
            }
        }
        Write(streams.out, answers);
    } else {
        decided = AnswerInput(streams, jobs, decide);
    }
    // The answers go out before a failure's line on the error stream.
    streams.out.flush();
    if (!decided) {
        return Fail(streams, "check", "the component could not decide a URL");
    }
    if (!streams.out) {
        return Fail(streams, "check", "cannot write the answers");
    }
    return kExitOk;
}

}  // namespace sentrel::cli

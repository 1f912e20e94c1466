#include "check_urls.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <future>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "line_blocks.h"
#include "task_threads.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

// Blocks waiting to be answered or written, per thread: enough that no thread waits for the
// writer.
constexpr std::size_t kBlocksPerThread = 2;

// Lines of standard input, their answers and the answerer that gives them.
struct Block {
    explicit Block(UrlAnswerer& by) : answerer(by) {}
    UrlAnswerer& answerer;
    std::string lines;
    std::string answers;
    bool answered = true;  // false: the answers end before a URL that had none
};

// Appends the URL's answer; false when it had none. The UTF-16 form goes through the caller's
// buffer, which keeps its memory from one URL to the next.
bool Answer(std::string_view line, UrlAnswerer& answerer, std::u16string& wide,
            std::string& answers) {
    wide.clear();
    AppendUtf8AsUtf16(line, true, wide);
    return answerer.Answer(line, wide, answers);
}

void AnswerLines(Block& block) {
    std::u16string wide;
    block.answers.clear();
    block.answered = true;
    std::string_view rest = block.lines;
    while (!rest.empty()) {
        const std::size_t end = rest.find('\n');
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
        // A line end written as CR LF leaves the CR, which is no part of the URL.
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (!Answer(line, block.answerer, wide, block.answers)) {
            block.answered = false;
            return;
        }
    }
}

void Write(std::ostream& out, const std::string& bytes) {
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Answers the lines of standard input, blocks of them on the threads at once, and writes the
// answers block by block in input order; false when a URL had no answer. Before waiting for
// input it writes every answer it can, so that a client that feeds one URL at a time and waits
// for its answer is served.
bool AnswerInput(CommandStreams& streams, unsigned jobs, const NextAnswerer& next) {
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
                block = std::make_unique<Block>(next());
            } else {
                block = std::move(spare.back());
                spare.pop_back();
            }
            more = input.Next(block->lines);
            if (more) {
                std::future<void> done =
                    threads.Run([&answered = *block] { AnswerLines(answered); });
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
        if (!block->answered || !streams.out) {
            return block->answered;
        }
        spare.push_back(std::move(block));
        pending.pop_front();
    }
}

// Answers with a decision alone.
class DecisionAnswerer final : public UrlAnswerer {
  public:
    explicit DecisionAnswerer(const UrlDecision& decide) : decide_(decide) {}
    bool Answer(std::string_view line, std::u16string_view url, std::string& answers) override {
        const std::optional<bool> allowed = decide_(url);
        if (allowed) {
            AppendCheckAnswer(*allowed, line, answers);
        }
        return allowed.has_value();
    }

  private:
    const UrlDecision& decide_;
};

}  // namespace

std::optional<unsigned> ParseJobs(const Arguments& arguments) {
    const std::optional<std::string> text = arguments.Value("--jobs");
    if (!text) {
        return std::max(1u, std::thread::hardware_concurrency());
    }
    unsigned jobs = 0;
    const char* end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, jobs);
    if (error != std::errc() || stop != end || jobs < 1 || jobs > kMostJobs) {
        return std::nullopt;
    }
    return jobs;
}

bool AnswerUrls(std::span<const std::string> urls, CommandStreams& streams, unsigned jobs,
                const NextAnswerer& next) {
    bool answered = true;
    if (!urls.empty()) {
        UrlAnswerer& answerer = next();
        std::u16string wide;
        std::string answers;
        for (const std::string& url : urls) {
            answered = Answer(url, answerer, wide, answers);
            if (!answered) {
                break;
            }
        }
        Write(streams.out, answers);
    } else {
        answered = AnswerInput(streams, jobs, next);
    }
    // The answers go out before a failure's line on the error stream.
    streams.out.flush();
    return answered;
}

void AppendCheckAnswer(bool allowed, std::string_view line, std::string& answers) {
    answers.append(allowed ? "allow\t" : "deny\t").append(line).push_back('\n');
}

int AnswersWritten(CommandStreams& streams, std::string_view command) {
    return streams.out ? kExitOk : Fail(streams, command, "cannot write the answers");
}

int CheckUrls(const Arguments& arguments, CommandStreams& streams, unsigned jobs,
              const UrlDecision& decide) {
    std::deque<DecisionAnswerer> answerers;
    if (!AnswerUrls(arguments.positionals, streams, jobs,
                    [&]() -> UrlAnswerer& { return answerers.emplace_back(decide); })) {
        return Fail(streams, "check", "the component could not decide a URL");
    }
    return AnswersWritten(streams, "check");
}

}  // namespace sentrel::cli

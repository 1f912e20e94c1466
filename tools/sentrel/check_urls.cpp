#include "check_urls.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
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

// Lines of standard input and their answers.
struct Block {
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

// The answerers that no block is using: a block takes one while it is answered, so that there
// are no more answerers than blocks answered at the same time, one per thread.
class Answerers {
  public:
    explicit Answerers(const NextAnswerer& next) : next_(next) {}

    UrlAnswerer& Take() {
        const std::scoped_lock lock(mutex_);
        if (free_.empty()) {
            return next_();
        }
        UrlAnswerer& answerer = *free_.back();
        free_.pop_back();
        return answerer;
    }
    void Give(UrlAnswerer& answerer) {
        const std::scoped_lock lock(mutex_);
        free_.push_back(&answerer);
    }

  private:
    const NextAnswerer& next_;
    std::mutex mutex_;
    std::vector<UrlAnswerer*> free_;
};

void AnswerLines(Block& block, UrlAnswerer& answerer) {
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
        if (!Answer(line, answerer, wide, block.answers)) {
            block.answered = false;
            return;
        }
    }
}

void AnswerLines(Block& block, Answerers& answerers) {
    UrlAnswerer& answerer = answerers.Take();
    AnswerLines(block, answerer);
    answerers.Give(answerer);
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
    Answerers answerers(next);
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
                std::future<void> done = threads.Run(
                    [&answered = *block, &answerers] { AnswerLines(answered, answerers); });
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

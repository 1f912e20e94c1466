#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "command.h"

namespace sentrel::cli {

// Decisions on more threads than this gain nothing, and each thread costs memory.
inline constexpr unsigned kMostJobs = 1024;

// The number of threads that --jobs names, by default one per core; nothing when it is not a
// whole number from 1 to kMostJobs.
std::optional<unsigned> ParseJobs(const Arguments& arguments);

inline constexpr std::string_view kJobsHelp =
    "  --jobs N        decide lines of standard input on N threads at once (default: one\n"
    "                  per core)\n";

// Answers URLs one at a time for AnswerUrls. AnswerUrls asks for one more answerer whenever a
// block of lines starts on a thread and none is free, and an answerer works on one block at a
// time, so it may count what it answers without sharing anything; its owner merges the counts
// once the answers are done.
class UrlAnswerer {
  public:
    virtual ~UrlAnswerer() = default;
    // Appends the answer to a URL, given as its line (without the line end) and in UTF-16;
    // false when it has none, which ends the answers.
    virtual bool Answer(std::string_view line, std::u16string_view url, std::string& answers) = 0;
};

// Gives one more answerer, which stays its caller's; called on one thread at a time.
using NextAnswerer = std::function<UrlAnswerer&()>;

// Answers each URL given, or else each line of the input stream, and writes the answers in input
// order. Lines of the input are answered in blocks on jobs threads at once (with 1, on the
// calling thread alone). False when a URL had no answer: the answers before it are written.
bool AnswerUrls(std::span<const std::string> urls, CommandStreams& streams, unsigned jobs,
                const NextAnswerer& next);

// One URL's answer: allowed or not; nothing when it could not be decided. It is called from as
// many threads at once as the answers are given jobs.
using UrlDecision = std::function<std::optional<bool>(std::u16string_view url)>;

// The answer line of check: "allow<TAB>URL" or "deny<TAB>URL".
void AppendCheckAnswer(bool allowed, std::string_view line, std::string& answers);

// The check command's answers: AnswerUrls with decide, then the command's failure lines.
int CheckUrls(const Arguments& arguments, CommandStreams& streams, unsigned jobs,
              const UrlDecision& decide);

// After AnswerUrls: kExitOk, or one error line when the answers could not be written.
int AnswersWritten(CommandStreams& streams, std::string_view command);

// The check command with the registered component deciding (Windows only).
int RunComponentCheck(const Arguments& arguments, CommandStreams& streams);

}  // namespace sentrel::cli

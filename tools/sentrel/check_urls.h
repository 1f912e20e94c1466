#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "command.h"

namespace sentrel::cli {

// One URL's answer: allowed or not; nothing when it could not be decided. It is called from as
// many threads at once as the answers are given jobs.
using UrlDecision = std::function<std::optional<bool>(std::u16string_view url)>;

// The check command's answers: decides each URL given, or else each line of standard input, and
// writes "allow<TAB>URL" or "deny<TAB>URL" for each, in input order. Lines of standard input are
// decided on jobs threads at once (with 1, on the calling thread alone).
int CheckUrls(const Arguments& arguments, CommandStreams& streams, unsigned jobs,
              const UrlDecision& decide);

// The check command with the registered component deciding (Windows only).
int RunComponentCheck(const Arguments& arguments, CommandStreams& streams);

}  // namespace sentrel::cli

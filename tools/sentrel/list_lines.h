#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "search/cracked_url.h"

namespace sentrel::cli {

// The list formats that import reads.
enum class ListFormat { Hosts, Domains, Urls, Adblock };

std::optional<ListFormat> ParseListFormat(std::string_view name);

// Why a line, or a name of a hosts line, gives no entry.
enum class SkipReason : std::uint8_t {
    Blank,              // blank or comment
    Header,             // an adblock header such as [Adblock Plus 2.0]
    NoName,             // a hosts line with an address only
    LocalName,          // localhost and its kin
    MachineAddress,     // 0.0.0.0, 127.x.x.x, ::1 and the like
    NotOneName,         // a domain line with more than one word
    NotXmlText,         // a character that the document cannot carry
    NotAHost,           // the cracker reads the name as something else than a host
    NoHost,             // nothing left of the host
    Uncrackable,        // CrackUrl fails
    OtherScheme,        // a URL of a scheme other than http and https
    QueryOrFragment,    // the index ignores both, so the line cannot be expressed
    UserInfo,           // the index ignores it, so the line cannot be expressed
    Exception,          // adblock @@
    Cosmetic,           // adblock ##, #@#, #?# ...
    RegularExpression,  // adblock /.../
    Wildcard,           // adblock * or a ^ inside the rule
    OtherAnchor,        // adblock | at either end, rather than ||
    Substring,          // adblock rule without anchor
    OpenDomain,         // adblock ||domain with nothing after it: longer names match too
    NarrowingOption,    // adblock $ option that narrows the rule, or that is not known
};

inline constexpr std::size_t kSkipReasons =
    static_cast<std::size_t>(SkipReason::NarrowingOption) + 1;

// A skip reason in words; a crack failure adds its own reason.
std::string DescribeSkip(SkipReason reason, CrackFailure why);

// An entry as a line means it: http://host[:port][/path], which the index also files under
// https. host is lower case without its trailing dot; pathKey is empty for every path.
struct ListEntry {
    std::u16string host;
    std::uint16_t port = 0;
    std::u16string pathKey;
    std::u16string name;  // the source text that gave the entry
};

// What one line gives: entries, and a reason for each part that gives none.
struct LineResult {
    std::vector<ListEntry> entries;
    std::vector<std::pair<SkipReason, CrackFailure>> skipped;
};

// Reads one line (without its line end) of a list in the format into result, which it empties
// first.
void ReadListLine(ListFormat format, std::u16string_view line, LineResult& result);

// The url under which an entry is written, which cracks back to the entry's keys.
std::u16string EntryUrl(std::u16string_view host, std::uint16_t port, std::u16string_view pathKey);

}  // namespace sentrel::cli

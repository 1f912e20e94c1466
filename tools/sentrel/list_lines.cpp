#include "list_lines.h"

#include <algorithm>
#include <array>

#include "entry_keys.h"
#include "policy/xml_characters.h"
#include "search/url_keys.h"
#include "text/ascii_case.h"
#include "text/url_text.h"

namespace sentrel::cli {

namespace {

using namespace std::string_view_literals;

// Names that hosts files give the machine itself.
constexpr std::array<std::u16string_view, 14> kLocalNames = {
    u"localhost"sv,     u"localhost.localdomain"sv,
    u"localdomain"sv,   u"local"sv,
    u"broadcasthost"sv, u"localhost6"sv,
    u"ip6-localhost"sv, u"ip6-loopback"sv,
    u"ip6-localnet"sv,  u"ip6-mcastprefix"sv,
    u"ip6-allnodes"sv,  u"ip6-allrouters"sv,
    u"ip6-allhosts"sv,  u"localhost6.localdomain6"sv,
};

std::u16string_view Trim(std::u16string_view text) {
    while (!text.empty() && IsUrlWhiteSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsUrlWhiteSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::vector<std::u16string_view> Words(std::u16string_view text) {
    std::vector<std::u16string_view> words;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || IsUrlWhiteSpace(text[i])) {
            if (i > start) {
                words.push_back(text.substr(start, i - start));
            }
            start = i + 1;
        }
    }
    return words;
}

std::u16string_view DropTrailingDot(std::u16string_view host) {
    return host.ends_with(u'.') ? host.substr(0, host.size() - 1) : host;
}

// Hexadecimal digits and colons only, with at least two colons: an IPv6 address without the
// brackets that a URL needs around it. Dots may stand in an embedded IPv4 part.
bool LooksLikeIpv6(std::u16string_view text) {
    return std::count(text.begin(), text.end(), u':') >= 2 &&
           std::all_of(text.begin(), text.end(), [](char16_t ch) {
               return (ch >= u'0' && ch <= u'9') || (ch >= u'a' && ch <= u'f') || ch == u':' ||
                      ch == u'.';
           });
}

// Whether every group of the text, split at the separator, is a number whose digits are all 0
// (an empty group counts as 0), except that the last may also be the given one.
bool AllZeroButLast(std::u16string_view text, char16_t separator, std::u16string_view last) {
    for (std::size_t start = 0;;) {
        const std::size_t end = std::min(text.find(separator, start), text.size());
        const std::u16string_view group = text.substr(start, end - start);
        const bool zero = group.find_first_not_of(u'0') == group.npos;
        if (end == text.size()) {
            return zero || group == last;
        }
        if (!zero) {
            return false;
        }
        start = end + 1;
    }
}

// 0.0.0.0, 127.x.x.x, :: and ::1, with or without brackets.
bool IsMachineAddress(std::u16string_view name) {
    if (name.size() > 2 && name.front() == u'[' && name.back() == u']') {
        name = name.substr(1, name.size() - 2);
    }
    if (LooksLikeIpv6(name)) {
        return AllZeroButLast(name, u':', u"1");
    }
    const bool ipv4 = std::count(name.begin(), name.end(), u'.') == 3 &&
                      name.find_first_not_of(u"0123456789.") == name.npos;
    return ipv4 && (name.starts_with(u"127.") || AllZeroButLast(name, u'.', u"0"));
}

bool IsLocalName(std::u16string_view name) {
    return std::find(kLocalNames.begin(), kLocalNames.end(), name) != kLocalNames.end() ||
           name.ends_with(u".localhost");
}

class LineReader {
  public:
    LineReader(std::u16string_view source, LineResult& result)
        : source_(Trim(source)), lowered_(source_), result_(result) {
        std::transform(lowered_.begin(), lowered_.end(), lowered_.begin(), LowerAscii);
        result_.entries.clear();
        result_.skipped.clear();
    }

    void Read(ListFormat format) {
        if (!IsXmlText(source_)) {
            return Skip(SkipReason::NotXmlText);
        }
        switch (format) {
            case ListFormat::Hosts:
                return ReadHosts();
            case ListFormat::Domains:
                return ReadDomains();
            case ListFormat::Urls:
                return ReadUrl();
            case ListFormat::Adblock:
                return ReadAdblock();
        }
    }

  private:
    void Skip(SkipReason reason, CrackFailure why = CrackFailure::None) {
        result_.skipped.emplace_back(reason, why);
    }

    // The source text of a part of the lowered line.
    std::u16string_view Source(std::u16string_view part) const {
        return source_.substr(static_cast<std::size_t>(part.data() - lowered_.data()), part.size());
    }

    // The line's words before a '#'.
    std::vector<std::u16string_view> WordsBeforeComment() const {
        const std::u16string_view text = lowered_;
        return Words(text.substr(0, std::min(text.find(u'#'), text.size())));
    }

    void ReadHosts() {
        const std::vector<std::u16string_view> words = WordsBeforeComment();
        if (words.empty()) {
            return Skip(SkipReason::Blank);
        }
        if (words.size() == 1) {
            return Skip(SkipReason::NoName);
        }
        for (std::size_t i = 1; i < words.size(); ++i) {
            const std::u16string_view name = DropTrailingDot(words[i]);
            if (IsLocalName(name)) {
                Skip(SkipReason::LocalName);
            } else if (IsMachineAddress(name)) {
                Skip(SkipReason::MachineAddress);
            } else {
                AddHost(words[i], Source(words[i]));
            }
        }
    }

    void ReadDomains() {
        const std::vector<std::u16string_view> words = WordsBeforeComment();
        if (words.size() != 1) {
            return Skip(words.empty() ? SkipReason::Blank : SkipReason::NotOneName);
        }
        std::u16string_view domain = words[0];
        // A leading "*." or "." names the subdomains as well, which the domain alone already does.
        if (domain.starts_with(u"*.")) {
            domain.remove_prefix(2);
        } else if (domain.starts_with(u'.')) {
            domain.remove_prefix(1);
        }
        AddHost(domain, Source(words[0]));
    }

    void ReadUrl() {
        std::u16string_view text = lowered_;
        if (text.empty() || text.starts_with(u'#')) {
            return Skip(SkipReason::Blank);
        }
        for (const std::u16string_view prefix : {u"http://"sv, u"https://"sv}) {
            if (text.starts_with(prefix)) {
                text.remove_prefix(prefix.size());
                return Add(text, std::nullopt, source_);
            }
        }
        const std::size_t scheme = text.find(u"://");
        if (scheme != text.npos && text.substr(0, scheme).find(u'/') == text.npos) {
            return Skip(SkipReason::OtherScheme);
        }
        Add(text, std::nullopt, source_);
    }

    void ReadAdblock() {
        const std::u16string_view text = lowered_;
        if (text.empty() || text.starts_with(u'!')) {
            return Skip(SkipReason::Blank);
        }
        if (text.starts_with(u'[')) {
            return Skip(SkipReason::Header);
        }
        if (text.starts_with(u"@@")) {
            return Skip(SkipReason::Exception);
        }
        if (IsCosmetic(text)) {
            return Skip(SkipReason::Cosmetic);
        }
        if (text.starts_with(u'/')) {
            const std::size_t close = text.find(u'/', 1);
            const bool regex =
                close != text.npos && (close + 1 == text.size() || text[close + 1] == u'$');
            return Skip(regex ? SkipReason::RegularExpression : SkipReason::Substring);
        }
        if (!text.starts_with(u"||")) {
            return Skip(text.starts_with(u'|') ? SkipReason::OtherAnchor : SkipReason::Substring);
        }
        std::u16string_view pattern = text.substr(2);
        const std::size_t dollar = pattern.find(u'$');
        if (dollar != pattern.npos) {
            if (!OptionsKeepTheMatch(pattern.substr(dollar + 1))) {
                return Skip(SkipReason::NarrowingOption);
            }
            pattern = pattern.substr(0, dollar);
        }
        // A trailing * after a separator or a slash matches what the rule matches without it.
        if (pattern.size() > 1 && pattern.ends_with(u'*') &&
            (pattern[pattern.size() - 2] == u'^' || pattern[pattern.size() - 2] == u'/')) {
            pattern.remove_suffix(1);
        }
        if (pattern.ends_with(u'|')) {
            return Skip(SkipReason::OtherAnchor);
        }
        if (pattern.find(u'*') != pattern.npos) {
            return Skip(SkipReason::Wildcard);
        }
        const std::size_t end = pattern.find_first_of(u"/^");
        if (end == pattern.npos) {
            return Skip(SkipReason::OpenDomain);
        }
        // ^ ends the rule, or a path that it then matches by whole segments.
        std::u16string_view target = pattern;
        if (target.ends_with(u'^')) {
            target.remove_suffix(1);
        }
        if (target.find(u'^') != target.npos) {
            return Skip(SkipReason::Wildcard);
        }
        Add(target, pattern.substr(0, end), source_);
    }

    // ##, #@#, #?#, #$#, #%# and their exception forms.
    static bool IsCosmetic(std::u16string_view text) {
        for (std::size_t hash = text.find(u'#'); hash != text.npos;
             hash = text.find(u'#', hash + 1)) {
            std::size_t next = hash + 1;
            next += next < text.size() && text[next] == u'@';
            next += next < text.size() && std::u16string_view(u"?$%").find(text[next]) != text.npos;
            if (next < text.size() && text[next] == u'#') {
                return true;
            }
        }
        return false;
    }

    // Only options that change nothing about which URLs match: every other one narrows the rule
    // to some requests, or makes it something else than a block.
    static bool OptionsKeepTheMatch(std::u16string_view options) {
        for (std::size_t start = 0;;) {
            const std::size_t comma = std::min(options.find(u',', start), options.size());
            const std::u16string_view option = options.substr(start, comma - start);
            if (option != u"important" && option != u"all") {
                return false;
            }
            if (comma == options.size()) {
                return true;
            }
            start = comma + 1;
        }
    }

    // A host name alone: the host and every path.
    void AddHost(std::u16string_view name, std::u16string_view source) {
        if (LooksLikeIpv6(name)) {
            std::u16string bracketed(1, u'[');
            bracketed.append(name).push_back(u']');
            return Add(bracketed, bracketed, source);
        }
        Add(name, name, source);
    }

    // text is host[:port][/path...] of an http URL; when host is given, the cracker must find
    // exactly that host in it (and so no port after it).
    void Add(std::u16string_view text, std::optional<std::u16string_view> host,
             std::u16string_view source) {
        const std::u16string url = u"http://" + std::u16string(text);
        CrackedUrl cracked;
        CrackFailure why = CrackFailure::None;
        if (!CrackUrl(url, cracked, &why)) {
            return Skip(SkipReason::Uncrackable, why);
        }
        if (host && cracked.host != *host) {
            return Skip(SkipReason::NotAHost);
        }
        if (!cracked.userName.empty() || !cracked.password.empty()) {
            return Skip(SkipReason::UserInfo);
        }
        if (!cracked.tail.empty()) {
            return Skip(SkipReason::QueryOrFragment);
        }
        const std::u16string_view name = DropTrailingDot(cracked.host);
        if (name.empty()) {
            return Skip(SkipReason::NoHost);
        }
        result_.entries.push_back({std::u16string(name), cracked.port,
                                   std::u16string(PathKey(cracked)), std::u16string(source)});
    }

    std::u16string_view source_;
    std::u16string lowered_;
    LineResult& result_;
};

}  // namespace

std::optional<ListFormat> ParseListFormat(std::string_view name) {
    if (name == "hosts") {
        return ListFormat::Hosts;
    }
    if (name == "domains") {
        return ListFormat::Domains;
    }
    if (name == "urls") {
        return ListFormat::Urls;
    }
    if (name == "adblock") {
        return ListFormat::Adblock;
    }
    return std::nullopt;
}

std::string DescribeSkip(SkipReason reason, CrackFailure why) {
    switch (reason) {
        case SkipReason::Blank:
            return "blank or comment";
        case SkipReason::Header:
            return "adblock header [...]";
        case SkipReason::NoName:
            return "address without a name";
        case SkipReason::LocalName:
            return "name of the machine itself (localhost and the like)";
        case SkipReason::MachineAddress:
            return "address of the machine itself (0.0.0.0, 127.x.x.x, ::1)";
        case SkipReason::NotOneName:
            return "more than one word";
        case SkipReason::NotXmlText:
            return "character that XML cannot carry";
        case SkipReason::NotAHost:
            return "not a host name to the URL cracker";
        case SkipReason::NoHost:
            return "no host";
        case SkipReason::Uncrackable:
            return "cannot be cracked: " + std::string(DescribeCrackFailure(why));
        case SkipReason::OtherScheme:
            return "scheme other than http and https";
        case SkipReason::QueryOrFragment:
            return "query or fragment (the index ignores them)";
        case SkipReason::UserInfo:
            return "user name or password (the index ignores them)";
        case SkipReason::Exception:
            return "adblock exception @@";
        case SkipReason::Cosmetic:
            return "adblock cosmetic rule";
        case SkipReason::RegularExpression:
            return "adblock regular expression /.../";
        case SkipReason::Wildcard:
            return "adblock wildcard * or ^ inside the rule";
        case SkipReason::OtherAnchor:
            return "adblock anchor other than ||";
        case SkipReason::Substring:
            return "adblock rule without || (matches anywhere in the URL)";
        case SkipReason::OpenDomain:
            return "adblock ||domain without ^ or / (matches longer names too)";
        case SkipReason::NarrowingOption:
            return "adblock option that narrows the rule";
    }
    return {};
}

void ReadListLine(ListFormat format, std::u16string_view line, LineResult& result) {
    LineReader(line, result).Read(format);
}

std::u16string EntryUrl(std::u16string_view host, std::uint16_t port, std::u16string_view pathKey) {
    std::u16string url = u"http://" + std::u16string(host);
    if (port != 0) {
        url.push_back(u':');
        for (const char digit : std::to_string(port)) {
            url.push_back(static_cast<char16_t>(digit));
        }
    }
    if (!pathKey.empty()) {
        // The path key drops one slash at either end, so a key that ends in one had two.
        url.append(u"/").append(pathKey).append(pathKey.ends_with(u'/') ? u"/" : u"");
    }
    return url;
}

}  // namespace sentrel::cli

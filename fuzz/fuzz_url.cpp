// Feeds arbitrary UTF-16 text (the input bytes, two to a character, little-endian) through
// normalising, cracking, keying, indexing and deciding, and stops at the first broken invariant.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "policy/web_filter_policy.h"
#include "search/cracked_url.h"
#include "search/url_keys.h"
#include "search/web_filter_searcher.h"
#include "text/url_text.h"

namespace {

using namespace sentrel;

void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A part is a view of the cracked text within its limit.
void RequireSound(std::u16string_view part, std::size_t limit, std::u16string_view text) {
    Require(part.size() <= limit);
    Require(part.empty() ||
            (part.data() >= text.data() && part.data() + part.size() <= text.data() + text.size()));
}

void RequireCleared(const CrackedUrl& cracked) {
    Require(cracked.scheme.empty() && cracked.host.empty() && cracked.userName.empty() &&
            cracked.password.empty() && cracked.path.empty() && cracked.tail.empty());
    Require(cracked.schemeId == UrlScheme::Other && cracked.port == 0 && !cracked.portNamed);
}

void RequireSound(const CrackedUrl& cracked, std::u16string_view text) {
    RequireSound(cracked.scheme, kSchemeLimit, text);
    RequireSound(cracked.host, kHostLimit, text);
    RequireSound(cracked.userName, kUserInfoLimit, text);
    RequireSound(cracked.password, kUserInfoLimit, text);
    RequireSound(cracked.path, kPathLimit, text);
    RequireSound(cracked.tail, kTailLimit, text);
    if (cracked.schemeId == UrlScheme::File || cracked.schemeId == UrlScheme::News ||
        cracked.schemeId == UrlScheme::Mailto) {
        Require(cracked.port == 0);
    }
    Require(!cracked.password.empty() ? !cracked.userName.empty() : true);
    const std::u16string_view pathKey = PathKey(cracked);
    Require(pathKey.size() <= cracked.path.size());
    Require(HostKey(cracked).size() <= cracked.host.size());
}

// A small fixed policy under each filter type, built once.
struct Searchers {
    WebFilterSearcher none;
    WebFilterSearcher white;
    WebFilterSearcher black;
    WebFilterSearcher all;

    Searchers() {
        FilterList whiteList(u"white");
        for (const char16_t* url : {u"http://a.b/x", u"https://www.c.d:8080/", u"ftp://e.f",
                                    u"http://[::1]/p/q", u"http:///empty", u"http://b"}) {
            whiteList.AddEntry(FilterEntry(u"w", url));
        }
        FilterList blackList(u"black");
        blackList.type = FilterListBlack;
        for (const char16_t* url : {u"http://g.h", u"http://i.j:81/k/", u"mailto:u@m.n"}) {
            blackList.AddEntry(FilterEntry(u"b", url));
        }
        WebFilterPolicy whitePolicy;
        whitePolicy.AddList(whiteList);
        whitePolicy.AddList(blackList);
        WebFilterPolicy blackPolicy;
        blackPolicy.AddList(blackList);
        none.filterType = WebFilterBlockNone;
        white.filterType = WebFilterBlockPolicy;
        white.LoadPolicy(whitePolicy);
        black.filterType = WebFilterBlockPolicy;
        black.LoadPolicy(blackPolicy);
        all.filterType = WebFilterBlockAll;
        all.LoadPolicy(whitePolicy);
    }
};

void RequireTracedDecisionAgrees(const WebFilterSearcher& searcher, std::u16string_view url) {
    DecisionTrace trace;
    const bool allowed = searcher.IsUrlAllowed(url);
    Require(searcher.IsUrlAllowed(url, &trace) == allowed);
    Require(trace.allowed == allowed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Searchers searchers;
    static const auto cracked = std::make_unique<CrackedUrl>();

    std::u16string text(size / 2, u'\0');
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
    }

    const std::u16string normalized = NormalizeUrlText(text);
    Require(normalized.size() <= text.size());
    Require(normalized.find(u'\0') == std::u16string::npos);
    Require(normalized.empty() ||
            (!IsUrlWhiteSpace(normalized.front()) && !IsUrlWhiteSpace(normalized.back())));
    for (const char16_t ch : normalized) {
        Require(ch < u'A' || ch > u'Z');
    }
    Require(NormalizeUrlText(normalized) == normalized);
    Require(NormalizedUrlText(text).view() == normalized);

    // Raw text too: cracking must hold up on input nobody normalised.
    if (CrackUrl(text, *cracked)) {
        RequireSound(*cracked, text);
    } else {
        RequireCleared(*cracked);
    }

    const bool crackedNormalized = CrackUrl(normalized, *cracked);
    // The crack of the decision's own normalised text, which is not searched for a NUL, is the
    // same part for part.
    const NormalizedUrlText own(text);
    CrackedUrl ownCrack;
    Require(CrackUrl(own, ownCrack) == crackedNormalized);
    Require(ownCrack.scheme == cracked->scheme && ownCrack.schemeId == cracked->schemeId &&
            ownCrack.host == cracked->host && ownCrack.userName == cracked->userName &&
            ownCrack.password == cracked->password && ownCrack.path == cracked->path &&
            ownCrack.tail == cracked->tail && ownCrack.port == cracked->port &&
            ownCrack.portNamed == cracked->portNamed);
    if (crackedNormalized) {
        RequireSound(*cracked, normalized);
        // An entry always matches the URL it was made from.
        SchemeToInfoMapType index;
        WebFilterSearcher::InsertUrl(normalized, index);
        index.Seal();
        Require(index.size() == 1);
        Require(WebFilterSearcher::IsUrlInIndex(*cracked, index) == !cracked->host.empty());
    } else {
        RequireCleared(*cracked);
    }

    Require(searchers.none.IsUrlAllowed(text));
    for (const WebFilterSearcher* searcher : {&searchers.white, &searchers.black, &searchers.all}) {
        RequireTracedDecisionAgrees(*searcher, text);
    }
    return 0;
}

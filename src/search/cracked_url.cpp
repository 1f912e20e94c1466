#include "search/cracked_url.h"

#include <array>

#include "text/ascii_case.h"
#include "text/find_first_of.h"
#include "text/url_text.h"

namespace sentrel {

namespace {

constexpr std::array<std::u16string_view, 8> kSchemeNames = {
    u"ftp", u"gopher", u"http", u"https", u"file", u"news", u"mailto", u"socks",
};

// Whether a part is within its limit.
bool Fits(std::u16string_view part, std::size_t limit) {
    return part.size() <= limit;
}

// One left-to-right pass over the text. The segment (the characters gathered since the last
// delimiter) is always a run of the text itself, so it is kept as a position, not copied.
class UrlCracker {
  public:
    // A text that holds no NUL ends where it ends, and is not searched for one.
    UrlCracker(std::u16string_view text, bool mayHoldNul, CrackedUrl& out)
        : text_(text), mayHoldNul_(mayHoldNul), out_(out) {}

    bool Crack() {
        if (!CrackAuthority()) {
            return false;
        }
        if (!haveScheme_) {
            return Fail(CrackFailure::NoScheme);
        }
        if (!CrackPath()) {
            return Fail(CrackFailure::PathTooLong);
        }
        out_.tail = Rest();
        return Fits(out_.tail, kTailLimit) || Fail(CrackFailure::TailTooLong);
    }

    CrackFailure Failure() const { return failure_; }

  private:
    // Where cracking goes on after a ':'.
    enum class Next { Fail, Authority, Path };

    bool Fail(CrackFailure why) {
        failure_ = why;
        return false;
    }
    Next FailNext(CrackFailure why) {
        failure_ = why;
        return Next::Fail;
    }

    // The character at i, or NUL past the end: the text ends at its first NUL either way.
    char16_t At(std::size_t i) const { return i < text_.size() ? text_[i] : u'\0'; }
    std::u16string_view Segment() const {
        return text_.substr(segmentBegin_, pos_ - segmentBegin_);
    }
    void StartSegment() { segmentBegin_ = pos_; }
    // The text from pos_ to its end, which pos_ moves to.
    std::u16string_view Rest() {
        return RunTo(mayHoldNul_ ? FindFirstOf<u'\0'>(text_, pos_) : text_.size());
    }
    // The position of the first of the delimiters at or after from, or the end. A NUL ends the
    // text too, but only a text that may hold one needs the compare.
    template <char16_t... Set>
    std::size_t Find(std::size_t from) const {
        return mayHoldNul_ ? FindFirstOf<u'\0', Set...>(text_, from)
                           : FindFirstOf<Set...>(text_, from);
    }
    // The text from pos_ to end, which pos_ moves to.
    std::u16string_view RunTo(std::size_t end) {
        const std::size_t begin = pos_;
        pos_ = end;
        return text_.substr(begin, end - begin);
    }

    // Passes a run of characters without a role in the authority, all but the last of the text:
    // each of them is only appended to the segment. The last one is left to end the authority.
    void SkipOrdinary() {
        const std::size_t begin = pos_;
        pos_ = Find<u':', u'@', u'/', u'?', u'[', u']'>(pos_);
        if (pos_ > begin && At(pos_) == u'\0') {
            --pos_;
        }
    }

    // Phase 1: scheme, user info, host and port. On true, pos_ is where the path begins.
    bool CrackAuthority() {
        for (;;) {
            SkipOrdinary();
            if (pos_ - segmentBegin_ > kCrackSegmentLimit) {
                return Fail(CrackFailure::SegmentTooLong);
            }
            const char16_t ch = At(pos_);
            if (ch == u'\0') {
                return true;  // ran out at a delimiter: the segment is empty, no host is stored
            }
            if (ch == u':' && !inBrackets_) {
                const Next next = haveScheme_ ? TakeAfterText() : TakeScheme();
                if (next != Next::Authority) {
                    return next == Next::Path;
                }
                continue;
            }
            if (ch == u'@') {
                if (haveUser_) {
                    return Fail(CrackFailure::SecondUserInfo);
                }
                out_.userName = Segment();
                if (!Fits(out_.userName, kUserInfoLimit)) {
                    return Fail(CrackFailure::UserInfoTooLong);
                }
                haveUser_ = true;
                inBrackets_ = false;
                ++pos_;
                StartSegment();
                continue;
            }
            if (ch == u'/' || ch == u'?') {
                return EndAuthority();
            }
            const bool last = At(pos_ + 1) == u'\0';
            if (!last) {
                if (ch == u'[' && haveScheme_ && !haveHost_) {
                    inBrackets_ = true;
                } else if (ch == u']') {
                    inBrackets_ = false;
                }
            }
            ++pos_;
            if (pos_ - segmentBegin_ > kCrackSegmentLimit) {
                return Fail(CrackFailure::SegmentTooLong);
            }
            if (last) {
                return EndAuthority();
            }
        }
    }

    // The first ':' outside brackets: the segment is the scheme.
    Next TakeScheme() {
        const std::u16string_view segment = Segment();
        // Table names are short, so only an Other scheme can be over the limit.
        if (!Fits(segment, kSchemeLimit)) {
            return FailNext(CrackFailure::SchemeTooLong);
        }
        out_.scheme = segment;
        out_.schemeId = LookUpUrlScheme(segment);
        haveScheme_ = true;
        const bool slash = At(pos_ + 1) == u'/';
        const bool twoSlashes = slash && At(pos_ + 2) == u'/';
        if (slash && !twoSlashes) {
            ++pos_;  // the path begins with that slash, and there is no host
            StartSegment();
            return Next::Path;
        }
        if (twoSlashes) {
            if (out_.schemeId == UrlScheme::Mailto) {
                return FailNext(CrackFailure::MailtoWithSlashes);
            }
            pos_ += 3;
        } else {
            ++pos_;
        }
        StartSegment();
        // Everything after a file scheme is path.
        return out_.schemeId == UrlScheme::File ? Next::Path : Next::Authority;
    }

    // A later ':' outside brackets: host and port, or user name and password.
    Next TakeAfterText() {
        constexpr std::size_t kAfterTextLimit = 128;
        const std::u16string_view before = Segment();
        ++pos_;
        const std::u16string_view after = RunTo(Find<u'/', u'@'>(pos_));
        if (!Fits(after, kAfterTextLimit)) {
            return FailNext(CrackFailure::AfterTextTooLong);
        }
        const bool endsAtUser = At(pos_) == u'@';
        if (!out_.portNamed && !endsAtUser) {
            if (!Fits(before, kHostLimit)) {
                return FailNext(CrackFailure::HostTooLong);
            }
            out_.host = before;
            // Only the low 16 bits of the number remain.
            out_.port =
                static_cast<std::uint16_t>(static_cast<std::uint32_t>(UrlTextToInt32(after)));
            out_.portNamed = true;
            haveHost_ = true;
        } else if (!haveUser_ && endsAtUser) {
            if (!Fits(before, kUserInfoLimit) || !Fits(after, kUserInfoLimit)) {
                return FailNext(CrackFailure::UserInfoTooLong);
            }
            out_.userName = before;
            out_.password = after;
            if (before.empty() && !after.empty()) {
                return FailNext(CrackFailure::PasswordWithoutUser);
            }
            haveUser_ = true;
            ++pos_;
        } else {
            return FailNext(CrackFailure::SecondUserInfo);
        }
        StartSegment();
        return Next::Authority;
    }

    bool EndAuthority() {
        if (!haveHost_) {
            out_.host = Segment();
            if (!Fits(out_.host, kHostLimit)) {
                return Fail(CrackFailure::HostTooLong);
            }
        }
        StartSegment();
        return true;
    }

    // Phase 2: the path runs to the query or fragment, or for a file URL to the end.
    bool CrackPath() {
        out_.path = out_.schemeId == UrlScheme::File ? Rest() : RunTo(Find<u'#', u'?'>(pos_));
        return Fits(out_.path, kPathLimit);
    }

    std::u16string_view text_;
    bool mayHoldNul_;
    CrackedUrl& out_;
    std::size_t pos_ = 0;
    std::size_t segmentBegin_ = 0;
    bool haveScheme_ = false;
    bool haveUser_ = false;
    bool haveHost_ = false;
    bool inBrackets_ = false;
    CrackFailure failure_ = CrackFailure::None;
};

}  // namespace

UrlScheme LookUpUrlScheme(std::u16string_view text) {
    // The length and first letter leave one table name at most, compared character by character
    // over the longest name's length, with no branch on where the two differ.
    constexpr std::size_t kLongestName = 6;
    if (text.size() < 3 || text.size() > kLongestName) {
        return UrlScheme::Other;
    }
    UrlScheme candidate = UrlScheme::Other;
    switch (LowerAscii(text[0])) {
        case u'f':
            candidate = text.size() == 3 ? UrlScheme::Ftp : UrlScheme::File;
            break;
        case u'g':
            candidate = UrlScheme::Gopher;
            break;
        case u'h':
            candidate = text.size() == 4 ? UrlScheme::Http : UrlScheme::Https;
            break;
        case u'n':
            candidate = UrlScheme::News;
            break;
        case u'm':
            candidate = UrlScheme::Mailto;
            break;
        case u's':
            candidate = UrlScheme::Socks;
            break;
        default:
            return UrlScheme::Other;
    }
    const std::u16string_view name = kSchemeNames[static_cast<std::size_t>(candidate)];
    unsigned differences = text.size() == name.size() ? 0 : 1;
    for (std::size_t i = 0; i < kLongestName; ++i) {
        const char16_t a = i < text.size() ? LowerAscii(text[i]) : u'\0';
        const char16_t b = i < name.size() ? name[i] : u'\0';
        differences |= static_cast<unsigned>(a ^ b);
    }
    return differences == 0 ? candidate : UrlScheme::Other;
}

namespace {

bool Crack(std::u16string_view text, bool mayHoldNul, CrackedUrl& out, CrackFailure* why) {
    out.Clear();
    UrlCracker cracker(text, mayHoldNul, out);
    if (!cracker.Crack()) {
        out.Clear();
        if (why != nullptr) {
            *why = cracker.Failure();
        }
        return false;
    }
    // These schemes take no port, and no default port is ever filled in.
    if (out.schemeId == UrlScheme::File || out.schemeId == UrlScheme::News ||
        out.schemeId == UrlScheme::Mailto) {
        out.port = 0;
    }
    return true;
}

}  // namespace

bool CrackUrl(std::u16string_view text, CrackedUrl& out, CrackFailure* why) {
    return Crack(text, true, out, why);
}

bool CrackUrl(const NormalizedUrlText& text, CrackedUrl& out, CrackFailure* why) {
    return Crack(text.view(), false, out, why);
}

}  // namespace sentrel

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "text/url_text.h"

namespace sentrel {

// The schemes that have a place in the table; the value is the position. Only File, News and
// Mailto change how a URL is cracked.
enum class UrlScheme : std::int32_t {
    Other = -1,
    Ftp = 0,
    Gopher = 1,
    Http = 2,
    Https = 3,
    File = 4,
    News = 5,
    Mailto = 6,
    Socks = 7,
};

// The table entry whose name equals the text without regard to ASCII case, or Other.
UrlScheme LookUpUrlScheme(std::u16string_view text);

// The limits of the parts, in characters: a longer part fails the crack.
inline constexpr std::size_t kSchemeLimit = 32;  // only an Other scheme can be longer
inline constexpr std::size_t kHostLimit = 256;
inline constexpr std::size_t kUserInfoLimit = 128;  // user name and password each
inline constexpr std::size_t kPathLimit = 2048;
inline constexpr std::size_t kTailLimit = 2048;

// The parts of one URL as CrackUrl finds them: views of the text that was cracked, which must
// outlive the record. Cracking copies nothing, and a decision reads its keys straight from the
// normalised text.
struct CrackedUrl {
    std::u16string_view scheme;  // as it stood before the first ':'
    UrlScheme schemeId = UrlScheme::Other;
    std::u16string_view host;  // may be empty
    std::u16string_view userName;
    std::u16string_view password;
    std::u16string_view path;  // with its leading '/' if it has one
    std::u16string_view tail;  // from the '?' or '#' that ended the path
    std::uint16_t port = 0;    // 0 when the URL names none or its scheme takes none
    bool portNamed = false;    // whether the URL named a port, whatever its value

    // Part by part: a whole new record would be built and copied, which costs a crack more than
    // the rest of it.
    void Clear() {
        scheme = {};
        host = {};
        userName = {};
        password = {};
        path = {};
        tail = {};
        schemeId = UrlScheme::Other;
        port = 0;
        portNamed = false;
    }
};

// The longest segment (the run between two delimiters of the authority) that cracking takes.
// 2,089 is what a 2,090-character working buffer for the segment holds beside its terminator,
// and a segment that would outgrow it fails. Here a segment is a position in the text, not a
// copy, so only that limit is kept. Every part's own limit is lower, so it
// fails no text that would otherwise crack; it only gives the reason.
inline constexpr std::size_t kCrackSegmentLimit = 2089;

// Why a text could not be cracked.
enum class CrackFailure {
    None,
    NoScheme,             // no ':' before the end of the authority
    SchemeTooLong,        // a scheme outside the table, over 32 characters
    MailtoWithSlashes,    // mailto followed by "//"
    HostTooLong,          // over 256 characters
    UserInfoTooLong,      // a user name or password over 128 characters
    PasswordWithoutUser,  // a password after an empty user name
    AfterTextTooLong,     // a port or password text after ':' over 128 characters
    SecondUserInfo,       // a second user-info part
    PathTooLong,          // over 2048 characters
    TailTooLong,          // over 2048 characters
    SegmentTooLong,       // a segment over kCrackSegmentLimit characters
};

// Cracks a normalised text into out. The text ends at its first NUL character, if any. On false
// ("could not crack") out is left cleared and why, when given, receives the reason.
bool CrackUrl(std::u16string_view text, CrackedUrl& out, CrackFailure* why = nullptr);
// The same for a normalised text, which holds no NUL, so its end is not looked for.
bool CrackUrl(const NormalizedUrlText& text, CrackedUrl& out, CrackFailure* why = nullptr);
// A text that dies with the call would leave the record's parts dangling.
template <class Text>
requires std::same_as<Text, std::u16string>
bool CrackUrl(Text&& text, CrackedUrl& out, CrackFailure* why = nullptr) = delete;

}  // namespace sentrel

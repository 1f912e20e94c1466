#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

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

// A text of at most Limit characters in a fixed array with room for a terminator, so that a
// record allocates nothing and clearing it costs two stores rather than a fill of the array.
template <std::size_t Limit>
class BoundedText {
  public:
    static constexpr std::size_t kLimit = Limit;

    BoundedText() { chars_[0] = 0; }
    BoundedText(const BoundedText& other) { Assign(other.view()); }
    BoundedText& operator=(const BoundedText& other) {
        Assign(other.view());
        return *this;
    }

    // Stores the text; false, leaving the stored text as it was, when it is over the limit.
    bool Assign(std::u16string_view text) {
        if (text.size() > Limit) {
            return false;
        }
        std::copy(text.begin(), text.end(), chars_.begin());
        length_ = static_cast<std::uint32_t>(text.size());
        chars_[length_] = 0;
        return true;
    }
    void Clear() {
        length_ = 0;
        chars_[0] = 0;
    }

    std::uint32_t length() const { return length_; }
    bool empty() const { return length_ == 0; }
    const char16_t* c_str() const { return chars_.data(); }
    std::u16string_view view() const { return {chars_.data(), length_}; }

  private:
    std::array<char16_t, Limit + 1> chars_;  // only the first length_ + 1 are ever read
    std::uint32_t length_ = 0;
};

// The parts of one URL as CrackUrl finds them.
struct CrackedUrl {
    BoundedText<32> scheme;  // as it stood before the first ':'
    UrlScheme schemeId = UrlScheme::Other;
    BoundedText<256> host;  // may be empty
    BoundedText<128> userName;
    BoundedText<128> password;
    BoundedText<2048> path;  // with its leading '/' if it has one
    BoundedText<2048> tail;  // from the '?' or '#' that ended the path
    std::uint16_t port = 0;  // 0 when the URL names none or its scheme takes none
    bool portNamed = false;  // whether the URL named a port, whatever its value

    void Clear();
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

}  // namespace sentrel

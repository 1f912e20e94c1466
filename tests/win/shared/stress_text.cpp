#include "stress_text.h"

#include <charconv>

namespace sentrel::test {

namespace {

std::uint32_t Checksum(std::u16string_view payload) {
    std::uint32_t hash = 2166136261u;
    for (const char16_t ch : payload) {
        hash = (hash ^ ch) * 16777619u;
    }
    return hash;
}

// Reads "<tag><decimal>;" at the front of text and advances past it.
bool ReadField(std::u16string_view& text, char16_t tag, std::uint64_t& value) {
    if (text.empty() || text.front() != tag) {
        return false;
    }
    std::size_t at = 1;
    value = 0;
    for (; at < text.size() && text[at] >= u'0' && text[at] <= u'9'; ++at) {
        value = value * 10 + static_cast<std::uint64_t>(text[at] - u'0');
    }
    if (at == 1 || at == text.size() || text[at] != u';') {
        return false;
    }
    text.remove_prefix(at + 1);
    return true;
}

void AppendField(std::u16string& out, char16_t tag, std::uint64_t value) {
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof(digits), value).ptr;
    out.push_back(tag);
    out.append(digits, end);
    out.push_back(u';');
}

}  // namespace

std::u16string MakeStressText(std::uint32_t writer, std::uint32_t stamp, std::uint32_t type,
                              std::size_t payloadLength, std::mt19937& random) {
    std::u16string payload(payloadLength, u'\0');
    std::uniform_int_distribution<int> letter(u'a', u'z');
    for (char16_t& ch : payload) {
        ch = static_cast<char16_t>(letter(random));
    }
    std::u16string text;
    AppendField(text, u'S', stamp);
    AppendField(text, u'T', type);
    AppendField(text, u'W', writer);
    AppendField(text, u'L', payloadLength);
    AppendField(text, u'C', Checksum(payload));
    return text + payload;
}

bool IsWholeStressText(std::u16string_view text, std::uint32_t stamp, std::uint32_t type) {
    std::uint64_t textStamp = 0;
    std::uint64_t textType = 0;
    std::uint64_t writer = 0;
    std::uint64_t length = 0;
    std::uint64_t checksum = 0;
    return ReadField(text, u'S', textStamp) && ReadField(text, u'T', textType) &&
           ReadField(text, u'W', writer) && ReadField(text, u'L', length) &&
           ReadField(text, u'C', checksum) && textStamp == stamp && textType == type &&
           text.size() == length && Checksum(text) == checksum;
}

}  // namespace sentrel::test

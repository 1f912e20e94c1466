#include "utf8.h"

#include <algorithm>
#include <cstdint>

namespace sentrel::cli {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf16(std::u16string& out, char32_t code) {
    if (code < 0x10000) {
        out.push_back(static_cast<char16_t>(code));
        return;
    }
    code -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 + (code >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
}

void AppendUtf8(std::string& out, char32_t code) {
    if (code < 0x80) {
        out.push_back(static_cast<char>(code));
    } else if (code < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (code >> 6)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (code >> 12)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (code >> 18)));
        out.push_back(static_cast<char>(0x80 | ((code >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (code & 0x3F)));
    }
}

}  // namespace

std::size_t AppendUtf8AsUtf16(std::string_view text, bool final, std::u16string& out) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<std::uint8_t>(text[i]);
        if (lead < 0x80) {
            // A run of ASCII, most of a URL, goes over at once.
            std::size_t end = i + 1;
            while (end < text.size() && static_cast<std::uint8_t>(text[end]) < 0x80) {
                ++end;
            }
            const std::size_t at = out.size();
            out.resize(at + (end - i));
            std::copy(text.begin() + static_cast<std::ptrdiff_t>(i),
                      text.begin() + static_cast<std::ptrdiff_t>(end),
                      out.begin() + static_cast<std::ptrdiff_t>(at));
            i = end;
            continue;
        }
        // Length, smallest value and first-continuation bounds of each well-formed sequence.
        std::size_t length = 0;
        char32_t code = 0;
        std::uint8_t low = 0x80;
        std::uint8_t high = 0xBF;
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
            code = lead & 0x1Fu;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            code = lead & 0x0Fu;
            low = lead == 0xE0 ? 0xA0 : 0x80;
            high = lead == 0xED ? 0x9F : 0xBF;  // no encoded surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            code = lead & 0x07u;
            low = lead == 0xF0 ? 0x90 : 0x80;
            high = lead == 0xF4 ? 0x8F : 0xBF;
        } else {
            out.push_back(static_cast<char16_t>(kReplacement));
            ++i;
            continue;
        }
        std::size_t taken = 1;
        for (; taken < length && i + taken < text.size(); ++taken) {
            const auto next = static_cast<std::uint8_t>(text[i + taken]);
            if (next < (taken == 1 ? low : 0x80) || next > (taken == 1 ? high : 0xBF)) {
                break;
            }
            code = (code << 6) | (next & 0x3Fu);
        }
        if (taken < length && i + taken == text.size() && !final) {
            // The next piece of text may complete the sequence.
            break;
        }
        if (taken < length) {
            // A broken sequence is one replacement; the byte that broke it starts afresh.
            out.push_back(static_cast<char16_t>(kReplacement));
            i += taken;
            continue;
        }
        AppendUtf16(out, code);
        i += length;
    }
    return i;
}

std::u16string Utf8ToUtf16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    AppendUtf8AsUtf16(text, true, out);
    return out;
}

std::string Utf16ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t unit = text[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            AppendUtf8(out, 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) +
                                (static_cast<char32_t>(text[i + 1]) - 0xDC00));
            ++i;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            AppendUtf8(out, kReplacement);
        } else {
            AppendUtf8(out, unit);
        }
    }
    return out;
}

std::string Quoted(std::u16string_view text) {
    return '"' + Utf16ToUtf8(text) + '"';
}

}  // namespace sentrel::cli

#include "json_text.h"

#include "utf8.h"

namespace sentrel::cli {

std::string JsonString(std::u16string_view text) {
    std::string out = "\"";
    for (const char c : Utf16ToUtf8(text)) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    static constexpr char kDigits[] = "0123456789abcdef";
                    out += "\\u00";
                    out += kDigits[static_cast<unsigned char>(c) >> 4];
                    out += kDigits[static_cast<unsigned char>(c) & 0xF];
                } else {
                    out += c;
                }
        }
    }
    out += '"';
    return out;
}

}  // namespace sentrel::cli

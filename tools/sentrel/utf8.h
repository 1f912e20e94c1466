#pragma once

#include <string>
#include <string_view>

namespace sentrel::cli {

// The command line and the standard streams carry UTF-8; everything inside is UTF-16. Ill-formed
// input (bad UTF-8 sequences, unpaired surrogates) becomes U+FFFD rather than failing.
std::u16string Utf8ToUtf16(std::string_view text);
std::string Utf16ToUtf8(std::u16string_view text);

// The text in UTF-8 between double quotes, for messages.
std::string Quoted(std::u16string_view text);

}  // namespace sentrel::cli

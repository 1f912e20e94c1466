#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sentrel::cli {

// The command line and the standard streams carry UTF-8; everything inside is UTF-16. Ill-formed
// input (bad UTF-8 sequences, unpaired surrogates) becomes U+FFFD rather than failing.
std::u16string Utf8ToUtf16(std::string_view text);
// Appends the UTF-16 form of text to out and returns how many bytes it took: all of them when
// the text is final, else all but a sequence that the text's end cuts short, which the next
// piece may complete.
std::size_t AppendUtf8AsUtf16(std::string_view text, bool final, std::u16string& out);
std::string Utf16ToUtf8(std::u16string_view text);

// The text in UTF-8 between double quotes, for messages.
std::string Quoted(std::u16string_view text);

}  // namespace sentrel::cli

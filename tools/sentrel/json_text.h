#pragma once

#include <string>
#include <string_view>

namespace sentrel::cli {

// The text as a JSON string literal, quotes included, in UTF-8.
std::string JsonString(std::u16string_view text);

}  // namespace sentrel::cli

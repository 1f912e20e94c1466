#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

namespace sentrel::test {

// Everything under root\path, one line per key and per value, sorted: "[]" for the key itself,
// "[Sub\Key]" for a subkey, "[Sub\Key] Name=Data" for a value ("[] =Data" for the key's default
// value; data that is not a string reads "(type N)"). Empty when the key does not exist.
std::vector<std::wstring> RegistryTree(HKEY root, const std::wstring& path);

// Keys with their trees, as expected: each tree is sorted the way RegistryTree sorts.
using RegistryTrees = std::vector<std::pair<std::wstring, std::vector<std::wstring>>>;
RegistryTrees SortedTrees(RegistryTrees trees);

bool RegistryKeyExists(HKEY root, const std::wstring& path);

// Creates the key and the keys on its way (options: REG_OPTION_VOLATILE for a volatile one).
bool CreateRegistryKey(HKEY root, const std::wstring& path, DWORD options = 0);

// A string value ("" names the default value); empty when it is missing.
std::wstring RegistryString(HKEY root, const std::wstring& path, const std::wstring& name);

}  // namespace sentrel::test

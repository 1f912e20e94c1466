#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace sentrel::test {

// Everything under root\path, one line per key and per value, sorted: "[]" for the key itself,
// "[Sub\Key]" for a subkey, "[Sub\Key] Name=Data" for a value ("[] =Data" for the key's default
// value; data that is not a string reads "(type N)"). Empty when the key does not exist.
std::vector<std::wstring> RegistryTree(HKEY root, const std::wstring& path);

bool RegistryKeyExists(HKEY root, const std::wstring& path);

// A string value ("" names the default value); empty when it is missing.
std::wstring RegistryString(HKEY root, const std::wstring& path, const std::wstring& name);

}  // namespace sentrel::test

#include "registry_tree.h"

#include <algorithm>

#include "shared/unique_resource.h"

namespace sentrel::test {

namespace {

UniqueKey OpenKey(HKEY root, const std::wstring& path) {
    HKEY opened = nullptr;
    if (RegOpenKeyExW(root, path.c_str(), 0, KEY_READ, &opened) != ERROR_SUCCESS) {
        return UniqueKey();
    }
    return UniqueKey(opened);
}

void CollectKey(HKEY key, const std::wstring& relative, std::vector<std::wstring>& lines) {
    const std::wstring label = L"[" + relative + L"]";
    lines.push_back(label);
    DWORD subkeys = 0;
    DWORD values = 0;
    RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr,
                     nullptr, nullptr, nullptr);
    for (DWORD index = 0; index < values; ++index) {
        wchar_t name[16384];
        DWORD nameLength = 16384;
        DWORD type = REG_NONE;
        BYTE data[4096] = {};
        DWORD dataLength = sizeof(data) - sizeof(wchar_t);
        if (RegEnumValueW(key, index, name, &nameLength, nullptr, &type, data, &dataLength) !=
            ERROR_SUCCESS) {
            lines.push_back(label + L" (unreadable value)");
            continue;
        }
        const std::wstring text = type == REG_SZ
                                      ? std::wstring(reinterpret_cast<const wchar_t*>(data))
                                      : L"(type " + std::to_wstring(type) + L")";
        lines.push_back(label + L" " + std::wstring(name, nameLength) + L"=" + text);
    }
    for (DWORD index = 0; index < subkeys; ++index) {
        wchar_t name[256];
        DWORD nameLength = 256;
        if (RegEnumKeyExW(key, index, name, &nameLength, nullptr, nullptr, nullptr, nullptr) !=
            ERROR_SUCCESS) {
            continue;
        }
        const std::wstring subkeyName(name, nameLength);
        const UniqueKey subkey = OpenKey(key, subkeyName);
        CollectKey(subkey.Get(), relative.empty() ? subkeyName : relative + L"\\" + subkeyName,
                   lines);
    }
}

}  // namespace

std::vector<std::wstring> RegistryTree(HKEY root, const std::wstring& path) {
    std::vector<std::wstring> lines;
    if (const UniqueKey key = OpenKey(root, path)) {
        CollectKey(key.Get(), L"", lines);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

RegistryTrees SortedTrees(RegistryTrees trees) {
    for (auto& tree : trees) {
        std::sort(tree.second.begin(), tree.second.end());
    }
    return trees;
}

bool CreateRegistryKey(HKEY root, const std::wstring& path, DWORD options) {
    HKEY created = nullptr;
    if (RegCreateKeyExW(root, path.c_str(), 0, nullptr, options, KEY_ALL_ACCESS, nullptr, &created,
                        nullptr) != ERROR_SUCCESS) {
        return false;
    }
    RegCloseKey(created);
    return true;
}

bool RegistryKeyExists(HKEY root, const std::wstring& path) {
    return static_cast<bool>(OpenKey(root, path));
}

std::wstring RegistryString(HKEY root, const std::wstring& path, const std::wstring& name) {
    wchar_t data[4096] = {};
    DWORD size = sizeof(data) - sizeof(wchar_t);
    if (RegGetValueW(root, path.c_str(), name.empty() ? nullptr : name.c_str(), RRF_RT_REG_SZ,
                     nullptr, data, &size) != ERROR_SUCCESS) {
        return {};
    }
    return data;
}

}  // namespace sentrel::test

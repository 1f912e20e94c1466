#include "shared/web_filter_connection_rules.h"

#include <windows.h>

#include <wchar.h>
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

#include "com/unique_resource.h"
#include "com/wide_text.h"

namespace sentrel {

namespace {

// Hands each value of a key under HKEY_LOCAL_MACHINE to onValue(status, type, data) in index
// order, until onValue returns false. Nothing is read when the key cannot be opened or queried.
template <class OnValue>
void ForEachValue(const wchar_t* keyPath, OnValue onValue) {
    HKEY opened = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, keyPath, 0, KEY_READ, &opened) != ERROR_SUCCESS) {
        return;
    }
    const UniqueKey key(opened);
    DWORD valueCount = 0;
    DWORD longestName = 0;
    DWORD longestData = 0;
    if (RegQueryInfoKeyW(key.Get(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                         &valueCount, &longestName, &longestData, nullptr,
                         nullptr) != ERROR_SUCCESS) {
        return;
    }
    std::vector<wchar_t> name(std::size_t{longestName} + 1);
    // One spare byte keeps data() non-null when every value is empty.
    std::vector<std::byte> data(std::size_t{longestData} + 1);
    for (DWORD index = 0; index < valueCount; ++index) {
        auto nameLength = static_cast<DWORD>(name.size());
        DWORD dataLength = longestData;
        DWORD type = REG_NONE;
        const LSTATUS status =
            RegEnumValueW(key.Get(), index, name.data(), &nameLength, nullptr, &type,
                          reinterpret_cast<BYTE*>(data.data()), &dataLength);
        const std::span<const std::byte> bytes(data.data(),
                                               std::min<std::size_t>(dataLength, longestData));
        if (!onValue(status, type, bytes)) {
            return;
        }
    }
}

// The runtime library's lowercase conversion in the current locale; like it, stops at the first
// zero character.
void Lowercase(std::u16string& name) {
    _wcslwr_s(AsWide(name.data()), name.size() + 1);
}

}  // namespace

bool WebFilterConnectionRules::LoadFromRegistry() {
    allowAll_ = 0;
    LoadFilteredPorts();
    LoadAllowedProcesses();
    return true;
}

void WebFilterConnectionRules::LoadFilteredPorts() {
    ForEachValue(kFilteredPortsKey,
                 [this](LSTATUS status, DWORD type, std::span<const std::byte> data) {
                     if (status != ERROR_SUCCESS) {
                         filteredPorts_.clear();
                         return false;
                     }
                     // Data too short to hold a port is no port.
                     if (type == REG_DWORD && data.size() >= sizeof(std::uint16_t)) {
                         const auto low = static_cast<unsigned>(data[0]);
                         const auto high = static_cast<unsigned>(data[1]);
                         filteredPorts_.insert(static_cast<std::uint16_t>(low | high << 8));
                     }
                     return true;
                 });
}

void WebFilterConnectionRules::LoadAllowedProcesses() {
    ForEachValue(
        kAllowedProcessesKey, [this](LSTATUS status, DWORD type, std::span<const std::byte> data) {
            if (status != ERROR_SUCCESS || type != REG_SZ || data.size() < sizeof(char16_t)) {
                return true;
            }
            // The data is taken to end with its terminator; no other one is looked for.
            std::u16string name(data.size() / sizeof(char16_t) - 1, u'\0');
            std::memcpy(name.data(), data.data(), name.size() * sizeof(char16_t));
            Lowercase(name);
            if (name == u"*") {
                allowAll_ = 1;
            }
            allowedProcesses_.insert(std::move(name));
            return true;
        });
}

bool WebFilterConnectionRules::IsProcessAllowed(std::u16string_view processName) const {
    if (allowAll_ != 0) {
        return true;
    }
    std::u16string name(processName);
    Lowercase(name);
    return allowedProcesses_.contains(name);
}

bool WebFilterConnectionRules::IsConnectionAllowed(std::u16string_view processName,
                                                   std::uint16_t port) const {
    if (!filteredPorts_.empty() && !filteredPorts_.contains(port)) {
        return true;
    }
    return IsProcessAllowed(processName);
}

void WebFilterConnectionRules::GetPorts(std::vector<std::uint16_t>& ports) const {
    const std::size_t first = ports.size();
    ports.insert(ports.end(), filteredPorts_.begin(), filteredPorts_.end());
    std::sort(ports.begin() + static_cast<std::ptrdiff_t>(first), ports.end());
}

void WebFilterConnectionRules::Clear() {
    allowAll_ = 0;
    filteredPorts_.clear();
    allowedProcesses_.clear();
}

}  // namespace sentrel

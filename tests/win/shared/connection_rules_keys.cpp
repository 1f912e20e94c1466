#include "connection_rules_keys.h"

#include "com/unique_resource.h"
#include "shared/web_filter_connection_rules.h"

namespace sentrel::test {

bool SetMachineValue(const wchar_t* key, const wchar_t* name, DWORD type, const void* data,
                     std::size_t bytes) {
    HKEY created = nullptr;
    if (RegCreateKeyExW(HKEY_LOCAL_MACHINE, key, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &created,
                        nullptr) != ERROR_SUCCESS) {
        return false;
    }
    const UniqueKey owned(created);
    return RegSetValueExW(created, name, 0, type, static_cast<const BYTE*>(data),
                          static_cast<DWORD>(bytes)) == ERROR_SUCCESS;
}

bool RemoveConnectionRulesKeys() {
    bool removed = true;
    for (const wchar_t* key : {WebFilterConnectionRules::kFilteredPortsKey,
                               WebFilterConnectionRules::kAllowedProcessesKey}) {
        const LSTATUS status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
        removed = removed && (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND);
    }
    for (const wchar_t* key : {L"Software\\Corvanta\\Lumetra\\WebFilter",
                               L"Software\\Corvanta\\Lumetra", L"Software\\Corvanta"}) {
        RegDeleteKeyW(HKEY_LOCAL_MACHINE, key);
    }
    return removed;
}

}  // namespace sentrel::test

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace sentrel {

// The machine's connection rules: the filtered ports and the processes that may connect on them,
// read once from two keys under HKEY_LOCAL_MACHINE. Filled and emptied only while no caller can
// ask, so the questions need no lock.
class WebFilterConnectionRules {
  public:
    static constexpr const wchar_t* kFilteredPortsKey =
        L"Software\\Corvanta\\Lumetra\\WebFilter\\FilteredPorts";
    static constexpr const wchar_t* kAllowedProcessesKey =
        L"Software\\Corvanta\\Lumetra\\WebFilter\\AllowedProcesses";

    // Reads both keys; a missing or unreadable key leaves its list empty. Always true.
    bool LoadFromRegistry();
    // Every REG_DWORD value is a port (its low 16 bits); other types are ignored. A failing
    // enumeration empties the list, so that every port then counts as filtered.
    void LoadFilteredPorts();
    // Every REG_SZ value is a process name, kept lowercased; "*" allows every process. A value
    // that cannot be read is skipped.
    void LoadAllowedProcesses();

    // Connections on ports that are not filtered are always allowed; with no port listed every
    // port counts as filtered.
    bool IsConnectionAllowed(std::u16string_view processName, std::uint16_t port) const;
    // The whole name must equal a listed one ignoring case, unless "*" is listed.
    bool IsProcessAllowed(std::u16string_view processName) const;
    // Appends every filtered port once, in ascending order.
    void GetPorts(std::vector<std::uint16_t>& ports) const;
    void Clear();

  private:
    std::uint32_t allowAll_ = 0;
    std::unordered_set<std::uint16_t> filteredPorts_;
    std::unordered_set<std::u16string> allowedProcesses_;
};

}  // namespace sentrel

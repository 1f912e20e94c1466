#include "section_probe.h"

#include <windows.h>

#include <cstring>

#include "com/unique_resource.h"

namespace sentrel::test {

namespace {

// The section's size as created: the system's section query, since a view only tells pages.
struct SectionBasicInformation {
    void* baseAddress;
    ULONG attributes;
    LARGE_INTEGER size;
};
using NtQuerySectionFunction = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);

std::uint64_t SectionBytes(HANDLE section) {
    const auto query = reinterpret_cast<NtQuerySectionFunction>(reinterpret_cast<void (*)()>(
        GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySection")));
    SectionBasicInformation information{};
    if (query == nullptr || query(section, 0, &information, sizeof(information), nullptr) != 0) {
        return 0;
    }
    return static_cast<std::uint64_t>(information.size.QuadPart);
}

}  // namespace

std::optional<SectionContent> ProbeSection() {
    // Querying the size needs SECTION_QUERY, which the section's access list grants everybody.
    const UniqueHandle section(
        OpenFileMappingW(FILE_MAP_READ | SECTION_QUERY, FALSE, L"WebFilterMMF"));
    if (!section) {
        return std::nullopt;
    }
    const UniqueView view(MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, 0));
    if (!view) {
        return std::nullopt;
    }
    SectionContent content;
    content.bytes = SectionBytes(section.Get());
    const auto* base = static_cast<const unsigned char*>(view.Get());
    std::memcpy(&content.stamp, base, sizeof(content.stamp));
    std::memcpy(&content.type, base + 4, sizeof(content.type));
    const auto* text = reinterpret_cast<const char16_t*>(base + 8);
    for (std::uint64_t at = 0; 8 + 2 * (at + 1) <= content.bytes && text[at] != u'\0'; ++at) {
        content.text.push_back(text[at]);
    }
    return content;
}

CheckResult CheckFrom(const WebFilterFileMapper& mapper, std::uint32_t lastStamp) {
    CheckResult result{false, lastStamp, kUntouchedType, kUntouchedText};
    result.changed = mapper.CheckContentChanged(result.lastStamp, result.type, result.text);
    return result;
}

}  // namespace sentrel::test

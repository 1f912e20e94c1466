#include "shared/monitored_section.h"

#include "policy/hresult_error.h"

namespace sentrel {

MonitoredSection::MonitoredSection(std::uint32_t spinCount) {
    if (!InitializeCriticalSectionAndSpinCount(&section_, 0)) {
        throw HResultError(HRESULT_FROM_WIN32(GetLastError()));
    }
    SetCriticalSectionSpinCount(&section_, spinCount);
}

MonitoredSection::~MonitoredSection() {
    DeleteCriticalSection(&section_);
}

}  // namespace sentrel

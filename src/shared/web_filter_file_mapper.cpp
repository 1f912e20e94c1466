#include "shared/web_filter_file_mapper.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "search/web_filter_type.h"
#include "shared/everyone_security_attributes.h"
#include "shared/log_last_error.h"
#include "shared/mutex_lock.h"

namespace sentrel {

namespace {

// What the access lists grant the Everyone group. Every open by name is checked against them;
// only the handle that creating an object gives its creator has full access. The mutex: waiting
// on it. The section: reading it, and WRITE_OWNER, the right to take ownership of it (an owner
// may then change its access list). No mapper uses that right, and neither right opens the
// section for writing: any other writer is refused with access denied, so only the creator ever
// writes, while every mapper can read.
constexpr std::uint32_t kMutexEveryoneAccess = SYNCHRONIZE;
constexpr std::uint32_t kSectionEveryoneAccess = GENERIC_READ | WRITE_OWNER;

std::uint32_t CapacityOf(std::uint32_t sectionBytes) {
    return (sectionBytes - SectionView::kHeaderBytes) / sizeof(char16_t);
}

}  // namespace

WebFilterFileMapper::WebFilterFileMapper() : mutex_(OpenAccessMutex()) {}

UniqueHandle WebFilterFileMapper::OpenAccessMutex() {
    EveryoneSecurityAttributes attributes;
    attributes.Build(kMutexEveryoneAccess);
    UniqueHandle mutex(CreateMutexW(attributes.Get(), FALSE, kMutexName));
    if (!mutex && GetLastError() == ERROR_ACCESS_DENIED) {
        mutex.Reset(OpenMutexW(SYNCHRONIZE, FALSE, kMutexName));
    }
    if (!mutex) {
        LogLastError(u"WebFilterFileMapper constructor - Could not open mutex 0x%x");
    }
    return mutex;
}

void WebFilterFileMapper::CloseSection() {
    view_ = SectionView();
    viewWritable_ = false;
    mapping_.Reset();
}

bool WebFilterFileMapper::OpenAndMap(bool write, std::uint32_t size) {
    CloseSection();
    mapping_.Reset(OpenFileMappingW(write ? FILE_MAP_READ | FILE_MAP_WRITE : FILE_MAP_READ, FALSE,
                                    kSectionName));
    if (!mapping_) {
        if (GetLastError() == ERROR_FILE_NOT_FOUND && write) {
            // Too small for the header and a terminator is no section size.
            const std::uint32_t bytes =
                size < SectionView::kHeaderBytes + sizeof(char16_t) ? kSmallSectionBytes : size;
            EveryoneSecurityAttributes attributes;
            attributes.Build(kSectionEveryoneAccess);
            mapping_.Reset(CreateFileMappingW(INVALID_HANDLE_VALUE, attributes.Get(),
                                              PAGE_READWRITE, 0, bytes, kSectionName));
            if (!mapping_) {
                LogLastError(u"WebFilterFileMapper::OpenAndMap - CreateFileMappingW failed: %d");
            } else if (GetLastError() != ERROR_ALREADY_EXISTS) {
                capacity_ = CapacityOf(bytes);
            }
        } else {
            LogLastError(u"WebFilterFileMapper::OpenAndMap - OpenFileMappingW failed: %d");
        }
        if (!mapping_) {
            return false;
        }
    }
    view_ = SectionView(mapping_.Get(), write ? FILE_MAP_ALL_ACCESS : FILE_MAP_READ);
    if (!view_) {
        LogLastError(u"WebFilterFileMapper::OpenAndMap - MapViewOfFile failed: %d");
        mapping_.Reset();
        return false;
    }
    viewWritable_ = write;
    return true;
}

bool WebFilterFileMapper::ShouldWrite(std::uint32_t type, std::u16string_view text) const {
    switch (type) {
        case WebFilterBlockNone:
            return view_ && (view_.FilterType() == WebFilterBlockAll || !view_.TextEquals(u""));
        case WebFilterBlockPolicy:
            // The stored type is not consulted: the same text under another type stays as it is.
            return view_ ? !view_.TextEquals(text) : !text.empty();
        case WebFilterBlockAll:
            return true;
        default:
            return false;
    }
}

bool WebFilterFileMapper::WriteContent(std::uint32_t type, std::u16string_view text) {
    TheLogger.Log(LogLevelError, u"WebFilterFileMapper::WriteContent - Entering scope");
    const MutexLock lock(mutex_.Get(), kLockTimeoutMs);
    if (!lock.Held()) {
        TheLogger.Log(LogLevelError,
                      u"WebFilterFileMapper::WriteContent - Could not lock on mutex");
        return false;
    }
    text = text.substr(0, text.find(u'\0'));

    bool written = false;
    if (!ShouldWrite(type, text)) {
        TheLogger.Log(LogLevelTrace,
                      u"WebFilterFileMapper::WriteContent - No need to apply filter");
    } else {
        const std::uint64_t slots = std::uint64_t{text.size()} + 1;
        std::uint32_t size = kSmallSectionBytes;
        if (slots > capacity_) {
            // Grow: nobody else holds the section while we hold the lock, so closing ours lets
            // the larger one replace it. A size beyond 32 bits is asked for as the largest one,
            // which then cannot hold the text.
            CloseSection();
            size = static_cast<std::uint32_t>(std::min<std::uint64_t>(
                2 * slots + SectionView::kHeaderBytes, std::numeric_limits<std::uint32_t>::max()));
        }
        if ((view_ && viewWritable_) || OpenAndMap(true, size)) {
            written = WriteString(type, text);
        }
    }
    TheLogger.Log(LogLevelTrace, u"WebFilterFileMapper::WriteContent - Exiting scope");
    return written;
}

bool WebFilterFileMapper::WriteString(std::uint32_t type, std::u16string_view text) {
    char16_t* field = view_.TextField();
    field[0] = u'\0';
    view_.SetFilterType(static_cast<std::uint16_t>(type));
    // Never beyond what this mapper created, nor beyond what was really mapped.
    const std::size_t room = std::min<std::size_t>(capacity_, view_.TextSlots());
    if (text.size() >= room) {
        TheLogger.Log(LogLevelError, u"WebFilterFileMapper::WriteString - _tcscpy_s failed: %d",
                      std::int32_t{ERANGE});
        return false;
    }
    std::copy(text.begin(), text.end(), field);
    field[text.size()] = u'\0';
    // The stamp goes last: it is what tells readers that a new text is complete.
    view_.SetStamp(++writeCount_);
    return true;
}

bool WebFilterFileMapper::CheckContentChanged(std::uint32_t& lastStamp, std::uint32_t& type,
                                              std::u16string& text) const {
    const MutexLock lock(mutex_.Get(), kLockTimeoutMs);
    if (!lock.Held()) {
        TheLogger.Log(LogLevelError,
                      u"WebFilterFileMapper::CheckContentChanged - Could not lock on mutex");
        return false;
    }
    // A handle and view of the check's own: the writer's, kept from its writes, stay untouched,
    // and holding the section only here lets the writer replace it when it grows.
    const UniqueHandle section(OpenFileMappingW(FILE_MAP_READ, FALSE, kSectionName));
    if (!section) {
        LogLastError(u"WebFilterFileMapper::OpenAndMap - OpenFileMappingW failed: %d");
        return false;
    }
    const SectionView view(section.Get(), FILE_MAP_READ);
    if (!view) {
        LogLastError(u"WebFilterFileMapper::OpenAndMap - MapViewOfFile failed: %d");
        return false;
    }
    const std::uint32_t stamp = view.Stamp();
    if (stamp == lastStamp) {
        return false;
    }
    std::u16string published(view.Text());
    text = std::move(published);
    type = view.FilterType();
    lastStamp = stamp;
    return true;
}

}  // namespace sentrel

#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "com/unique_resource.h"
#include "shared/section_view.h"

namespace sentrel {

// Publishes one filter type and policy text to every process through the named section
// "WebFilterMMF", and tells a reader whether somebody published since it last looked. Every
// access, in every process, is serialised by the named mutex "WebFilterFileAccessMutex".
//
// The mapper that creates the section keeps it (and so the published policy) alive and is the
// only one that can write to it, through the handle that creating it gave: the section's access
// list lets every other opener read it and take ownership of it, but not open it for writing.
class WebFilterFileMapper {
  public:
    static constexpr const wchar_t* kSectionName = L"WebFilterMMF";
    static constexpr const wchar_t* kMutexName = L"WebFilterFileAccessMutex";
    static constexpr std::uint32_t kLockTimeoutMs = 1000;
    static constexpr std::uint32_t kInitialCapacity = 12;
    static constexpr std::uint32_t kSmallSectionBytes = 32;

    // Never fails: without a mutex every later write and check fails to lock (logged here once).
    WebFilterFileMapper();
    WebFilterFileMapper(const WebFilterFileMapper&) = delete;
    WebFilterFileMapper& operator=(const WebFilterFileMapper&) = delete;

    // Opens (or, when missing and write is true, creates with `size` bytes) the section and maps
    // it whole; replaces any section this mapper held.
    bool OpenAndMap(bool write, std::uint32_t size);

    // Publishes type and text unless nothing would change; true only when the section was
    // written. The text counts up to its first zero character.
    bool WriteContent(std::uint32_t type, std::u16string_view text);

    // True when the section's stamp differs from lastStamp; then lastStamp, type and text receive
    // the section's stamp, filter type and text. Otherwise the three are left as they were.
    bool CheckContentChanged(std::uint32_t& lastStamp, std::uint32_t& type,
                             std::u16string& text) const;

    // Text characters, terminator included, that this mapper may write.
    std::uint32_t Capacity() const { return capacity_; }
    // The stamp of this mapper's last publication (0 before its first).
    std::uint32_t WriteCount() const { return writeCount_; }

    // The named mutex, created with an access list that lets everybody only wait on it, or
    // opened for waiting when another holder created it first. Null (logged) when neither works.
    static UniqueHandle OpenAccessMutex();

  private:
    bool ShouldWrite(std::uint32_t type, std::u16string_view text) const;
    bool WriteString(std::uint32_t type, std::u16string_view text);
    void CloseSection();

    UniqueHandle mapping_;
    SectionView view_;
    bool viewWritable_ = false;
    std::uint32_t capacity_ = kInitialCapacity;
    std::uint32_t writeCount_ = 0;
    UniqueHandle mutex_;
};

}  // namespace sentrel

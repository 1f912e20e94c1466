#include "recording_sink.h"

#include <chrono>

#include "module/interface_table.h"

namespace sentrel::test {

ComPtr<RecordingSink> RecordingSink::Create() {
    return ComPtr<RecordingSink>::Adopt(new RecordingSink());
}

HRESULT STDMETHODCALLTYPE RecordingSink::QueryInterface(REFIID iid, void** object) {
    return AnswerQueryInterface(FindInterfaceIn<IWebFilterEvents>(this, iid), object);
}

ULONG STDMETHODCALLTYPE RecordingSink::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&references_));
}

ULONG STDMETHODCALLTYPE RecordingSink::Release() {
    const auto count = static_cast<ULONG>(InterlockedDecrement(&references_));
    if (count == 0) {
        delete this;
    }
    return count;
}

HRESULT STDMETHODCALLTYPE RecordingSink::OnFilterContentChanged(WebFilterType type) {
    const std::lock_guard lock(mutex_);
    events_.push_back({type, GetCurrentThreadId()});
    arrived_.notify_all();
    return S_OK;
}

std::vector<RecordingSink::Event> RecordingSink::WaitForEvents(std::size_t count, DWORD timeoutMs) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                      [&] { return events_.size() >= count; });
    return events_;
}

}  // namespace sentrel::test

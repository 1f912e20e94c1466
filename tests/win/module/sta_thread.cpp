#include "sta_thread.h"

#include <objbase.h>

#include <future>

#include "shared/unique_resource.h"

namespace sentrel::test {

namespace {

constexpr UINT kRunMessage = WM_APP + 1;

struct Task {
    const std::function<void()>& work;
    std::promise<void> done;
};

}  // namespace

StaThread::StaThread() {
    const UniqueHandle ready(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    thread_ = std::thread(&StaThread::Loop, this, ready.Get());
    WaitForSingleObject(ready.Get(), INFINITE);
}

StaThread::~StaThread() {
    PostThreadMessageW(threadId_, WM_QUIT, 0, 0);
    thread_.join();
}

void StaThread::Run(const std::function<void()>& work) {
    Task task{work, {}};
    std::future<void> done = task.done.get_future();
    PostThreadMessageW(threadId_, kRunMessage, 0, reinterpret_cast<LPARAM>(&task));
    done.get();
}

void StaThread::Loop(HANDLE ready) {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    MSG message;
    // The first call gives the thread its message queue, which PostThreadMessage needs.
    PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);
    threadId_ = GetCurrentThreadId();
    SetEvent(ready);
    while (GetMessageW(&message, nullptr, 0, 0) > 0) {
        if (message.hwnd == nullptr && message.message == kRunMessage) {
            auto* task = reinterpret_cast<Task*>(message.lParam);
            task->work();
            task->done.set_value();
            continue;
        }
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    CoUninitialize();
}

}  // namespace sentrel::test

#pragma once

#include <windows.h>

#include <functional>
#include <thread>

namespace sentrel::test {

// A thread in a single-threaded apartment of its own that dispatches its messages while it has
// nothing to do, so that calls from other apartments into the objects it created, and the
// window messages of those objects, reach it. Run hands it work and waits until it is done.
class StaThread {
  public:
    StaThread();
    // Lets the thread leave its apartment and end.
    ~StaThread();
    StaThread(const StaThread&) = delete;
    StaThread& operator=(const StaThread&) = delete;

    void Run(const std::function<void()>& work);
    DWORD ThreadId() const { return threadId_; }

  private:
    void Loop(HANDLE ready);

    DWORD threadId_ = 0;
    std::thread thread_;
};

}  // namespace sentrel::test

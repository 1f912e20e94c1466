#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace sentrel::cli {

// Runs tasks on a fixed set of threads, in the order they were handed over; with no threads,
// each task runs at once on the caller's thread.
class TaskThreads {
  public:
    explicit TaskThreads(unsigned count);
    // Drops the tasks that have not started and waits for the others.
    ~TaskThreads();
    TaskThreads(const TaskThreads&) = delete;
    TaskThreads& operator=(const TaskThreads&) = delete;

    unsigned Count() const { return static_cast<unsigned>(threads_.size()); }
    // The future is ready once the task has run, and holds what it threw.
    std::future<void> Run(std::function<void()> task);

  private:
    void Work();

    std::mutex mutex_;
    std::condition_variable queued_;
    std::deque<std::packaged_task<void()>> tasks_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace sentrel::cli

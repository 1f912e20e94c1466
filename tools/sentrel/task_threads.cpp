#include "task_threads.h"

#include <utility>

namespace sentrel::cli {

TaskThreads::TaskThreads(unsigned count) {
    threads_.reserve(count);
    for (unsigned i = 0; i < count; ++i) {
        threads_.emplace_back(&TaskThreads::Work, this);
    }
}

TaskThreads::~TaskThreads() {
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
        tasks_.clear();
    }
    queued_.notify_all();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

std::future<void> TaskThreads::Run(std::function<void()> task) {
    std::packaged_task<void()> packaged(std::move(task));
    std::future<void> done = packaged.get_future();
    if (threads_.empty()) {
        packaged();
        return done;
    }
    {
        const std::scoped_lock lock(mutex_);
        tasks_.push_back(std::move(packaged));
    }
    queued_.notify_one();
    return done;
}

void TaskThreads::Work() {
    for (;;) {
        std::packaged_task<void()> task;
        {
            std::unique_lock lock(mutex_);
            queued_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (stopping_) {
                return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

}  // namespace sentrel::cli

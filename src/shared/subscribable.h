#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

namespace sentrel {

// A set of subscribers (not owned, each once, ordered by address) that any thread may change
// while another thread notifies them.
//
// Notification calls each subscriber without holding the section, so a subscriber may subscribe
// or unsubscribe (itself or others) from inside its call, and other threads are not held up by a
// slow subscriber. Unsubscribe still guarantees that once it returns the subscriber is never
// called again: it waits for a call to that subscriber running on another thread to finish
// (never for one on its own thread, so unsubscribing from inside one's own call cannot
// deadlock), and the walk skips a subscriber removed after the walk began.
template <class Subscriber, class Section>
class ISubscribable {
  public:
    static constexpr std::uint32_t kSpinCount = 1000;

    ISubscribable() : section_(kSpinCount) {}
    virtual ~ISubscribable() = default;
    ISubscribable(const ISubscribable&) = delete;
    ISubscribable& operator=(const ISubscribable&) = delete;

    virtual void Subscribe(Subscriber* subscriber) {
        if (subscriber == nullptr) {
            return;
        }
        const typename Section::Guard guard(section_);
        subscribers_.insert(subscriber);
    }

    virtual void Unsubscribe(Subscriber* subscriber) {
        const typename Section::Guard guard(section_);
        subscribers_.erase(subscriber);
        const DWORD self = GetCurrentThreadId();
        while (std::any_of(calls_.begin(), calls_.end(), [&](const Call& call) {
            return call.subscriber == subscriber && call.thread != self;
        })) {
            section_.Wait();
        }
    }

  protected:
    // Calls notify(subscriber) for each subscriber in address order, one after another.
    template <class Notify>
    void NotifySubscribers(Notify notify) {
        std::vector<Subscriber*> snapshot;
        {
            const typename Section::Guard guard(section_);
            snapshot.assign(subscribers_.begin(), subscribers_.end());
        }
        const DWORD self = GetCurrentThreadId();
        for (Subscriber* subscriber : snapshot) {
            {
                const typename Section::Guard guard(section_);
                if (!subscribers_.contains(subscriber)) {
                    continue;
                }
                calls_.push_back(Call{self, subscriber});
            }
            const CallEnd end{*this, Call{self, subscriber}};
            notify(*subscriber);
        }
    }

  private:
    struct Call {
        DWORD thread;
        Subscriber* subscriber;
        bool operator==(const Call&) const = default;
    };

    // Ends a call in flight, also when the subscriber throws, and wakes Unsubscribe calls that
    // wait for it.
    struct CallEnd {
        ISubscribable& owner;
        Call call;
        ~CallEnd() {
            const typename Section::Guard guard(owner.section_);
            owner.calls_.erase(std::find(owner.calls_.begin(), owner.calls_.end(), call));
            owner.section_.WakeAll();
        }
    };

    Section section_;
    std::set<Subscriber*> subscribers_;
    std::vector<Call> calls_;  // subscriber calls in flight, by thread
};

}  // namespace sentrel

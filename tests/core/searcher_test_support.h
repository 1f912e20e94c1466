#pragma once

// Policies and a log capture for the searcher's tests.

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <string>
#include <vector>

#include "module/log/logger.h"
#include "policy/web_filter_policy.h"

namespace sentrel::searcher_test {

inline FilterList ListOf(FilterListType type, const std::vector<std::u16string>& urls,
                         const std::vector<std::u16string>& exceptions = {}) {
    FilterList list(u"list");
    list.type = type;
    for (const std::u16string& url : urls) {
        list.AddEntry(FilterEntry(u"entry", url));
    }
    for (const std::u16string& url : exceptions) {
        list.AddException(FilterEntry(u"exception", url));
    }
    return list;
}

inline WebFilterPolicy PolicyOf(std::initializer_list<FilterList> lists) {
    WebFilterPolicy policy;
    for (const FilterList& list : lists) {
        policy.AddList(list);
    }
    return policy;
}

// One white and one black list.
inline WebFilterPolicy PolicyOf(const std::vector<std::u16string>& white,
                                const std::vector<std::u16string>& black) {
    return PolicyOf({ListOf(FilterListWhite, white), ListOf(FilterListBlack, black)});
}

struct LoggedMessage {
    std::int32_t level;
    std::u16string text;
    friend bool operator==(const LoggedMessage&, const LoggedMessage&) = default;
};

// Installs a capturing sink on TheLogger for the test's duration and puts back what was there.
class LogCaptureTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Store().clear();
        previous_ = TheLogger.InstallSink(&Capture);
    }
    void TearDown() override { TheLogger.InstallSink(previous_); }

    static std::vector<LoggedMessage> Logged() {
        const std::lock_guard lock(Mutex());
        return Store();
    }

  private:
    static std::int32_t Capture(std::int32_t level, const std::u16string& text) {
        const std::lock_guard lock(Mutex());
        Store().push_back({level, text});
        return 0;
    }
    static std::mutex& Mutex() {
        static std::mutex mutex;
        return mutex;
    }
    static std::vector<LoggedMessage>& Store() {
        static std::vector<LoggedMessage> messages;
        return messages;
    }

    LogSink previous_ = nullptr;
};

}  // namespace sentrel::searcher_test

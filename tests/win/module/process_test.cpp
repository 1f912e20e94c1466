// Across processes: the example client watching in one process while this process, or another
// client process, publishes a policy; and the sentrel tool asking the registered component.

#include <windows.h>

#include <gtest/gtest.h>
#include <objbase.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "child_process.h"
#include "manager/bstr.h"
#include "manager/com_ptr.h"
#include "module_test_paths.h"
#include "policy/web_filter_xml_processor.h"
#include "search/web_filter_searcher.h"
#include "sentrel_h.h"
#include "sentrel_registration.h"

namespace sentrel::test {
namespace {

constexpr DWORD kProcessWaitMs = 60000;

const std::vector<std::string> kUrls{"https://www.encyclopedia.example/wiki/Photosynthesis",
                                     "http://learn.example.org/maths/x",
                                     "http://learn.example.org/music/",
                                     "http://games.example/",
                                     "http://chat.example:6667/",
                                     "about:blank"};

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

std::wstring UrlArguments() {
    std::wstring arguments;
    for (const std::string& url : kUrls) {
        arguments += L" " + Quote(Wide(url));
    }
    return arguments;
}

// An example policy's text; the examples are ASCII.
std::u16string ExamplePolicy(const std::string& name) {
    std::ifstream file(std::filesystem::path(ExamplePolicyPath(name)), std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    return std::u16string(bytes.begin(), bytes.end());
}

// The answer lines ("allow<TAB>URL", "deny<TAB>URL") that follow the line start.
std::vector<std::string> Answers(const std::string& text, const std::string& start) {
    std::istringstream lines(text);
    std::vector<std::string> answers;
    bool found = false;
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const bool answer = line.starts_with("allow\t") || line.starts_with("deny\t");
        if (line == start) {
            found = true;
        } else if (found && answer) {
            answers.push_back(line);
        } else if (found) {
            break;
        }
    }
    return answers;
}

std::string Answer(bool allowed, const std::string& url) {
    return (allowed ? "allow\t" : "deny\t") + url;
}

// What the built-in library answers for kUrls under a policy file and a type.
std::vector<std::string> LibraryAnswers(const std::string& policyFile, WebFilterType type) {
    WebFilterPolicy policy;
    EXPECT_TRUE(WebFilterXmlProcessor::DeserializePolicy(policy, ExamplePolicy(policyFile)));
    WebFilterSearcher searcher;
    searcher.filterType = type;
    searcher.LoadPolicy(policy);
    std::vector<std::string> answers;
    for (const std::string& url : kUrls) {
        answers.push_back(
            Answer(searcher.IsUrlAllowed(std::u16string(url.begin(), url.end())), url));
    }
    return answers;
}

std::vector<std::string> AllAllowed() {
    std::vector<std::string> answers;
    for (const std::string& url : kUrls) {
        answers.push_back(Answer(true, url));
    }
    return answers;
}

// The example client waiting for a change for at most timeoutSeconds.
ChildProcess StartWatcher(int timeoutSeconds) {
    return ChildProcess(Quote(ClientPath()) + L" watch --timeout " +
                        std::to_wstring(timeoutSeconds) + UrlArguments());
}

class ProcessTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK); }
    void TearDown() override { CoUninitialize(); }

    static bool IsWaiting(ChildProcess& watcher) {
        return watcher.WaitForOutput("waiting for a policy change", kProcessWaitMs);
    }

    // A manager of this process that has published the example policy under WebFilterBlockPolicy;
    // the shared copy lives as long as it does.
    static ComPtr<IWebFilterManager> Publish(const std::string& policyFile) {
        ComPtr<IWebFilterManager> publisher;
        EXPECT_EQ(CreateManager(publisher), S_OK);
        if (publisher) {
            const Bstr policy = Bstr::Copy(ExamplePolicy(policyFile));
            EXPECT_EQ(publisher->SetFilterContent(::WebFilterBlockPolicy, policy.Get()), S_OK);
        }
        return publisher;
    }
};

TEST_F(ProcessTest, AClientInAnotherProcessReceivesThePublishedPolicyAndDecidesByIt) {
    ChildProcess watcher = StartWatcher(30);
    ASSERT_TRUE(IsWaiting(watcher)) << watcher.Output();
    const ComPtr<IWebFilterManager> publisher = Publish("school-whitelist.xml");
    ASSERT_TRUE(publisher);

    ASSERT_EQ(watcher.WaitForExit(kProcessWaitMs), 0u) << watcher.Output();
    const std::string output = watcher.Output();
    EXPECT_NE(output.find("policy changed: policy"), std::string::npos) << output;
    EXPECT_EQ(Answers(output, "before the change:"), AllAllowed());
    // The other process answers as the publishing object does.
    std::vector<std::string> expected;
    for (const std::string& url : kUrls) {
        long allowed = -1;
        EXPECT_EQ(publisher->IsUrlAllowed(Bstr::Copy(std::u16string(url.begin(), url.end())).Get(),
                                          &allowed),
                  S_OK);
        expected.push_back(Answer(allowed == 1, url));
    }
    EXPECT_EQ(Answers(output, "after the change:"), expected);
    EXPECT_NE(expected, AllAllowed());
}

TEST_F(ProcessTest, OneClientProcessPublishesAndAnotherReceivesTheChange) {
    ChildProcess watcher = StartWatcher(30);
    ASSERT_TRUE(IsWaiting(watcher)) << watcher.Output();
    ChildProcess publisher(Quote(ClientPath()) + L" publish " +
                           Quote(ExamplePolicyPath("office-blacklist.xml")) + L" all 3");
    ASSERT_EQ(watcher.WaitForExit(kProcessWaitMs), 0u) << watcher.Output();
    ASSERT_EQ(publisher.WaitForExit(kProcessWaitMs), 0u) << publisher.Output();
    const std::string output = watcher.Output();
    // Under WebFilterBlockAll the change is announced whatever the policy's refresh mode (1 here).
    EXPECT_NE(output.find("policy changed: all"), std::string::npos) << output;
    EXPECT_NE(output.find("now in force: all, refresh mode 1,"), std::string::npos) << output;
    EXPECT_EQ(Answers(output, "after the change:"),
              LibraryAnswers("office-blacklist.xml", WebFilterBlockAll));
}

TEST_F(ProcessTest, APolicyWithAnotherRefreshModeIsTakenWithoutAnEvent) {
    ChildProcess watcher = StartWatcher(4);
    ASSERT_TRUE(IsWaiting(watcher)) << watcher.Output();
    // The office black list has refresh mode 1: the watcher loads it silently.
    const ComPtr<IWebFilterManager> publisher = Publish("office-blacklist.xml");
    ASSERT_TRUE(publisher);
    EXPECT_EQ(watcher.WaitForExit(kProcessWaitMs), 1u) << watcher.Output();
    EXPECT_NE(watcher.Output().find("no policy change arrived"), std::string::npos);
}

struct ToolCase {
    const char* policy;
    const wchar_t* type;
};

TEST_F(ProcessTest, TheToolAnswersThroughTheComponentAsThroughItsLibrary) {
    const std::vector<ToolCase> cases{{"school-whitelist.xml", L"policy"},
                                      {"office-blacklist.xml", L"policy"},
                                      {"mixed-case-prefixes.xml", L"policy"},
                                      {"school-whitelist.xml", L"all"},
                                      {"office-blacklist.xml", L"none"}};
    for (const ToolCase& test : cases) {
        SCOPED_TRACE(testing::Message()
                     << test.policy << " " << testing::PrintToString(std::wstring(test.type)));
        const std::wstring arguments = L" check --policy " + Quote(ExamplePolicyPath(test.policy)) +
                                       L" --type " + test.type + UrlArguments();
        const Completed library = RunToEnd(Quote(ToolPath()) + arguments);
        const Completed component = RunToEnd(Quote(ToolPath()) + arguments + L" --com");
        ASSERT_EQ(library.exitCode, 0u) << library.output;
        ASSERT_EQ(component.exitCode, 0u) << component.output;
        EXPECT_EQ(component.output, library.output);
        EXPECT_EQ(std::count(component.output.begin(), component.output.end(), '\n'),
                  static_cast<std::ptrdiff_t>(kUrls.size()));
    }
}

}  // namespace
}  // namespace sentrel::test

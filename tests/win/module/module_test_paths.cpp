#include "module_test_paths.h"

#include <windows.h>

namespace sentrel::test {

std::wstring WindowsPath(std::string_view path) {
    std::wstring converted(path.begin(), path.end());
    for (wchar_t& c : converted) {
        if (c == L'/') {
            c = L'\\';
        }
    }
    return path.starts_with('/') ? L"Z:" + converted : converted;
}

std::wstring DllPath() {
    return WindowsPath(SENTREL_TEST_DLL);
}

std::wstring DllFolder() {
    const std::wstring path = DllPath();
    return path.substr(0, path.find_last_of(L'\\'));
}

std::wstring ClientPath() {
    return WindowsPath(SENTREL_TEST_CLIENT);
}

std::wstring ToolPath() {
    return WindowsPath(SENTREL_TEST_TOOL);
}

std::wstring ExamplePolicyPath(std::string_view fileName) {
    return WindowsPath(std::string(SENTREL_TEST_EXAMPLES) + "/policies/" + std::string(fileName));
}

std::string ProjectVersion() {
    return SENTREL_TEST_VERSION;
}

}  // namespace sentrel::test

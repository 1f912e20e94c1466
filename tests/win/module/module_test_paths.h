#pragma once

#include <string>
#include <string_view>

namespace sentrel::test {

// The programs and files that the tests use, as built, with Windows paths (a build tree path
// such as /work/build/x is reached through the drive Z: that maps the root).
std::wstring WindowsPath(std::string_view path);
std::wstring DllPath();
std::wstring DllFolder();
std::wstring ClientPath();
std::wstring ToolPath();
std::wstring ExamplePolicyPath(std::string_view fileName);
// The project's version, as the version resource should carry it ("1.0.0").
std::string ProjectVersion();

}  // namespace sentrel::test

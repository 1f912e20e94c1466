#include "module/registration_scope.h"

#include <gtest/gtest.h>

#include <vector>

namespace sentrel {
namespace {

struct CommandLineCase {
    const wchar_t* commandLine;
    RegistrationScope scope;
};

TEST(RegistrationScope, OnlyTheWordUserAloneInAnyCaseAsksForTheCurrentUser) {
    const std::vector<CommandLineCase> cases{
        {L"user", RegistrationScope::User},
        {L"USER", RegistrationScope::User},
        {L"User", RegistrationScope::User},
        {L"uSeR", RegistrationScope::User},
        {nullptr, RegistrationScope::Machine},
        {L"", RegistrationScope::Machine},
        {L"users", RegistrationScope::Machine},
        {L"user ", RegistrationScope::Machine},
        {L"user\tx", RegistrationScope::Machine},
        {L" user", RegistrationScope::Machine},
        {L"use", RegistrationScope::Machine},
        {L"u", RegistrationScope::Machine},
        {L"machine", RegistrationScope::Machine},
        // Only A to Z fold: no other letter passes for one of the word's.
        {L"u\x017Fer", RegistrationScope::Machine},
        {L"\xFF55ser", RegistrationScope::Machine},
    };
    for (const CommandLineCase& test : cases) {
        SCOPED_TRACE(test.commandLine == nullptr
                         ? "(null)"
                         : testing::PrintToString(std::wstring(test.commandLine)));
        EXPECT_EQ(ScopeOfInstallCommandLine(test.commandLine), test.scope);
    }
}

}  // namespace
}  // namespace sentrel

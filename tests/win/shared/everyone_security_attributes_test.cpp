#include <gtest/gtest.h>

#include <windows.h>

#include <thread>

#include "shared/everyone_security_attributes.h"
#include "shared/mutex_lock.h"
#include "shared/web_filter_file_mapper.h"

namespace sentrel {
namespace {

// The one entry of the attributes' access list: Everyone, allowed exactly the mask.
void ExpectOnlyEveryoneWith(EveryoneSecurityAttributes& attributes, DWORD mask) {
    SECURITY_ATTRIBUTES* raw = attributes.Get();
    EXPECT_EQ(raw->nLength, sizeof(SECURITY_ATTRIBUTES));
    EXPECT_FALSE(raw->bInheritHandle);
    ASSERT_NE(raw->lpSecurityDescriptor, nullptr);
    BOOL present = FALSE;
    BOOL defaulted = TRUE;
    PACL acl = nullptr;
    ASSERT_TRUE(GetSecurityDescriptorDacl(raw->lpSecurityDescriptor, &present, &acl, &defaulted));
    EXPECT_TRUE(present);
    EXPECT_FALSE(defaulted);
    ASSERT_NE(acl, nullptr);
    ASSERT_EQ(acl->AceCount, 1);
    void* ace = nullptr;
    ASSERT_TRUE(GetAce(acl, 0, &ace));
    const auto* allowed = static_cast<const ACCESS_ALLOWED_ACE*>(ace);
    EXPECT_EQ(allowed->Header.AceType, ACCESS_ALLOWED_ACE_TYPE);
    EXPECT_EQ(allowed->Header.AceFlags, 0);
    EXPECT_EQ(allowed->Mask, mask);
    SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
    PSID everyone = nullptr;
    ASSERT_TRUE(
        AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &everyone));
    EXPECT_TRUE(EqualSid(const_cast<DWORD*>(&allowed->SidStart), everyone));
    FreeSid(everyone);
}

TEST(EveryoneSecurityAttributes, GrantsEveryoneTheMaskAndNothingElse) {
    EveryoneSecurityAttributes attributes;
    EXPECT_EQ(attributes.Get()->lpSecurityDescriptor, nullptr);  // default security until built
    ASSERT_TRUE(attributes.Build(SYNCHRONIZE));
    ExpectOnlyEveryoneWith(attributes, SYNCHRONIZE);
    // Built again, it holds the new mask only.
    ASSERT_TRUE(attributes.Build(GENERIC_READ | WRITE_OWNER));
    ExpectOnlyEveryoneWith(attributes, GENERIC_READ | WRITE_OWNER);
}

// The mutex lets others only wait on it; a handle opened that way must still release it, or the
// next owner would find it abandoned rather than free.
TEST(AccessMutex, EveryHandleTakesAndReleasesIt) {
    const UniqueHandle first = WebFilterFileMapper::OpenAccessMutex();
    ASSERT_TRUE(first);
    std::thread([] {
        const UniqueHandle second = WebFilterFileMapper::OpenAccessMutex();
        ASSERT_TRUE(second);
        const MutexLock lock(second.Get(), 1000);
        EXPECT_TRUE(lock.Held());
    }).join();
    std::thread([&] {
        EXPECT_EQ(WaitForSingleObject(first.Get(), 0), WAIT_OBJECT_0);
        ReleaseMutex(first.Get());
    }).join();
}

TEST(AccessMutex, AbandonedCountsAsTakenAndTimeOutDoesNot) {
    const UniqueHandle mutex = WebFilterFileMapper::OpenAccessMutex();
    // Owned by a thread that ends without releasing it.
    std::thread([&] { EXPECT_EQ(WaitForSingleObject(mutex.Get(), 0), WAIT_OBJECT_0); }).join();
    {
        const MutexLock lock(mutex.Get(), 0);
        EXPECT_TRUE(lock.Held());
        std::thread([&] { EXPECT_FALSE(MutexLock(mutex.Get(), 10).Held()); }).join();
    }
    EXPECT_FALSE(MutexLock(nullptr, 0).Held());
    std::thread([&] { EXPECT_TRUE(MutexLock(mutex.Get(), 0).Held()); }).join();
}

}  // namespace
}  // namespace sentrel

#include "shared/everyone_security_attributes.h"

#include <aclapi.h>

#include "shared/log_last_error.h"

namespace sentrel {

bool EveryoneSecurityAttributes::Build(std::uint32_t accessMask) {
    attributes_.lpSecurityDescriptor = nullptr;
    descriptor_.Reset();
    acl_.Reset();
    sid_.Reset();

    SID_IDENTIFIER_AUTHORITY worldAuthority = SECURITY_WORLD_SID_AUTHORITY;
    PSID sid = nullptr;
    if (!AllocateAndInitializeSid(&worldAuthority, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0,
                                  &sid)) {
        LogLastError(u"EveryoneSecurityAttributes - AllocateAndInitializeSid Error %u");
        return false;
    }
    sid_.Reset(sid);

    EXPLICIT_ACCESS_W access{};
    access.grfAccessPermissions = accessMask;
    access.grfAccessMode = SET_ACCESS;
    access.grfInheritance = NO_INHERITANCE;
    access.Trustee.pMultipleTrustee = nullptr;
    access.Trustee.MultipleTrusteeOperation = NO_MULTIPLE_TRUSTEE;
    access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    access.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
    access.Trustee.ptstrName = static_cast<LPWSTR>(sid);
    PACL acl = nullptr;
    const DWORD aclResult = SetEntriesInAclW(1, &access, nullptr, &acl);
    if (aclResult != ERROR_SUCCESS) {
        // The call reports its failure by its result; keep it as the thread's last error too.
        SetLastError(aclResult);
        LogLastError(u"EveryoneSecurityAttributes - SetEntriesInAcl Error %u");
        return false;
    }
    acl_.Reset(acl);

    descriptor_.Reset(LocalAlloc(LPTR, SECURITY_DESCRIPTOR_MIN_LENGTH));
    if (!descriptor_) {
        LogLastError(u"EveryoneSecurityAttributes - LocalAlloc Error %u");
        return false;
    }
    if (!InitializeSecurityDescriptor(descriptor_.Get(), SECURITY_DESCRIPTOR_REVISION)) {
        LogLastError(u"EveryoneSecurityAttributes - InitializeSecurityDescriptor Error %u");
        return false;
    }
    if (!SetSecurityDescriptorDacl(descriptor_.Get(), TRUE, acl, FALSE)) {
        LogLastError(u"EveryoneSecurityAttributes - SetSecurityDescriptorDacl Error %u");
        return false;
    }
    attributes_.lpSecurityDescriptor = descriptor_.Get();
    return true;
}

}  // namespace sentrel

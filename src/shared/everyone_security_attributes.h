#pragma once

#include <windows.h>

#include <cstdint>

#include "com/unique_resource.h"

namespace sentrel {

// Security attributes whose access list grants the Everyone group one access mask and nothing
// else. Callers pass Get() to a create call whether or not Build succeeded: after a failed build
// the descriptor is null and the object gets the platform's default security.
class EveryoneSecurityAttributes {
  public:
    EveryoneSecurityAttributes() = default;
    EveryoneSecurityAttributes(const EveryoneSecurityAttributes&) = delete;
    EveryoneSecurityAttributes& operator=(const EveryoneSecurityAttributes&) = delete;

    bool Build(std::uint32_t accessMask);

    SECURITY_ATTRIBUTES* Get() { return &attributes_; }

  private:
    SECURITY_ATTRIBUTES attributes_{sizeof(SECURITY_ATTRIBUTES), nullptr, FALSE};
    UniqueSid sid_;
    UniqueLocal acl_;
    UniqueLocal descriptor_;
};

}  // namespace sentrel

#include "com/module_lock.h"

namespace sentrel {

constinit ModuleLockCount TheModuleLockCount;

}  // namespace sentrel

#pragma once

#include <ostream>

#include "policy/web_filter_policy.h"
#include "search/web_filter_type.h"

namespace sentrel::cli {

// Writes what a change from one policy to another does to the indexes: the index entries added
// and removed, then the hosts whose decisions can change under the filter type, or one line when
// an index becoming empty or non-empty changes every host. True when a decision can change.
bool WriteIndexChanges(const WebFilterPolicy& before, const WebFilterPolicy& after,
                       WebFilterType type, std::ostream& out);

}  // namespace sentrel::cli

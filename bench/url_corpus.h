#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "policy/web_filter_policy.h"

namespace sentrel::bench {

// A generated policy and URLs to decide against it, the same for the same size and seed.
// Entries look like real list entries: host names of 2 to 5 labels, a third with paths, some
// with ports, a mix of schemes. Hits are deeper hosts and longer paths under an entry; misses
// are hosts of 3 to 6 labels under no entry. Both carry long paths and sometimes a query.
struct UrlCorpus {
    WebFilterPolicy policy;
    std::vector<std::u16string> entryUrls;
    std::vector<std::u16string> hits;
    std::vector<std::u16string> misses;
};

UrlCorpus MakeUrlCorpus(FilterListType listType, std::size_t entryCount, std::size_t urlCount,
                        std::uint64_t seed);

}  // namespace sentrel::bench

#include "manager/web_filter_state.h"

#include <utility>

namespace sentrel {

WebFilterState::Filter::Filter() : searcher_(std::make_unique<WebFilterSearcher>()) {}

WebFilterState::Filter::Filter(WebFilterType type, WebFilterPolicy policy)
    : type_(type), policy_(std::move(policy)), searcher_(std::make_unique<WebFilterSearcher>()) {
    searcher_->filterType = type;
    searcher_->LoadPolicy(policy_);
}

WebFilterState::Filter WebFilterState::Exchange(Filter&& filter) noexcept {
    std::swap(current_.type_, filter.type_);
    std::swap(current_.policy_, filter.policy_);
    std::swap(current_.searcher_, filter.searcher_);
    return std::move(filter);
}

void WebFilterState::SetFilter(WebFilterType type, const WebFilterPolicy& policy) {
    Exchange(Filter(type, policy));
}

}  // namespace sentrel

#pragma once

#include <memory>
#include <string_view>

#include "policy/web_filter_policy.h"
#include "search/web_filter_searcher.h"
#include "search/web_filter_type.h"

namespace sentrel {

// The filter in force of one manager object: its type, its policy and the index built from
// that policy. It has no lock of its own; the owner guards it with its object lock.
//
// A new filter is built whole before it replaces the old one, so a failure while copying or
// indexing (memory running out) leaves the filter in force untouched, and the build itself can
// run without the owner's lock.
class WebFilterState {
  public:
    // A filter built and ready to be put in force.
    class Filter {
      public:
        // WebFilterBlockNone, the default policy and an empty index.
        Filter();
        Filter(WebFilterType type, WebFilterPolicy policy);

      private:
        friend class WebFilterState;
        WebFilterType type_ = WebFilterBlockNone;
        WebFilterPolicy policy_;
        // Held by pointer so that putting a filter in force moves no index.
        std::unique_ptr<WebFilterSearcher> searcher_;
    };

    // Puts the filter in force and hands back the one it replaced, so that the caller can let
    // the old index go after releasing its lock.
    Filter Exchange(Filter&& filter) noexcept;
    // Builds the filter of type and policy and puts it in force.
    void SetFilter(WebFilterType type, const WebFilterPolicy& policy);
    // Writes the type in force (as this enumeration or the interface's own), then copies the
    // policy in force: a copy that fails leaves the type written.
    template <class Type>
    void GetFilter(Type& type, WebFilterPolicy& policy) const {
        type = static_cast<Type>(current_.type_);
        policy = current_.policy_;
    }
    const WebFilterPolicy& GetPolicy() const { return current_.policy_; }
    bool IsUrlAllowed(std::u16string_view url) const {
        return current_.searcher_->IsUrlAllowed(url);
    }

  private:
    Filter current_;
};

}  // namespace sentrel

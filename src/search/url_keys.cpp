#include "search/url_keys.h"

namespace sentrel {

std::u16string_view SchemeKey(const CrackedUrl& cracked) {
    const std::u16string_view scheme = cracked.scheme;
    return scheme == u"https" ? kHttpSchemeKey : scheme;
}

std::u16string_view HostKey(const CrackedUrl& cracked) {
    std::u16string_view host = cracked.host;
    constexpr std::u16string_view prefix = kWwwHostPrefix;
    if (host.starts_with(prefix)) {
        host.remove_prefix(prefix.size());
    }
    return host;
}

std::u16string_view PathKey(const CrackedUrl& cracked) {
    std::u16string_view path = cracked.path;
    if (path.starts_with(u'/')) {
        path.remove_prefix(1);
    }
    if (path.ends_with(u'/')) {
        path.remove_suffix(1);
    }
    return path;
}

}  // namespace sentrel

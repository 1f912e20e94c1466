#include "json_text.h"

#include <nlohmann/json.hpp>

#include "policy/guid.h"
#include "search/url_keys.h"
#include "utf8.h"

namespace sentrel::cli {

namespace {

// Fields stay in the order written.
using Json = nlohmann::ordered_json;

std::string Text(std::u16string_view text) {
    return Utf16ToUtf8(text);
}

std::string Line(const Json& json) {
    // The texts come from UTF-16 and are well-formed; should one not be, it is mended, not thrown.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json CrackedObject(const CrackedUrl& cracked) {
    return {{"scheme", Text(cracked.scheme)},     {"schemeId", static_cast<int>(cracked.schemeId)},
            {"host", Text(cracked.host)},         {"userName", Text(cracked.userName)},
            {"password", Text(cracked.password)}, {"path", Text(cracked.path)},
            {"tail", Text(cracked.tail)},         {"port", cracked.port}};
}

Json KeysObject(const CrackedUrl& cracked) {
    if (cracked.host.empty()) {
        return {{"scheme", Text(SchemeKey(cracked))},
                {"host", nullptr},
                {"port", nullptr},
                {"path", nullptr}};
    }
    return {{"scheme", Text(SchemeKey(cracked))},
            {"host", Text(HostKey(cracked))},
            {"port", cracked.port},
            {"path", Text(PathKey(cracked))}};
}

Json IndexObject(const IndexTrace& index) {
    const bool hostFound = index.outcome == IndexOutcome::Matched ||
                           index.outcome == IndexOutcome::NoPortEntry ||
                           index.outcome == IndexOutcome::PathMismatch;
    const bool matched = index.outcome == IndexOutcome::Matched;
    return {{"outcome", OutcomeName(index.outcome)},
            {"schemeKey", Text(index.schemeKey)},
            {"hostKey", hostFound ? Json(Text(index.hostKey)) : Json()},
            {"port", matched ? Json(index.port) : Json()},
            {"pathKey", matched && !index.everyPath ? Json(Text(index.pathKey)) : Json()}};
}

}  // namespace

std::string CrackedUrlJson(const CrackedUrl& cracked) {
    return Line(CrackedObject(cracked));
}

std::string ExplanationJson(const Explanation& explanation) {
    const bool cracked = explanation.crackedWell;
    Json entries = Json::array();
    for (const EntrySource& source : explanation.entries) {
        entries.push_back({{"list", Text(source.list->name)},
                           {"listId", Text(GuidToText(source.list->id))},
                           {"entry", Text(source.entry.name)},
                           {"url", Text(source.entry.url)}});
    }
    const DecisionTrace& trace = explanation.trace;
    return Line({
        {"url", Text(explanation.url)},
        {"normalised", Text(explanation.normalised)},
        {"cracked", cracked ? CrackedObject(explanation.cracked) : Json()},
        {"keys", cracked ? KeysObject(explanation.cracked) : Json()},
        {"crackFailure", cracked ? Json() : Json(DescribeCrackFailure(explanation.crackFailure))},
        {"decision", trace.allowed ? "allow" : "deny"},
        {"step", TextsOf(trace.step).name},
        {"reason", DecisionReason(explanation)},
        {"index", ByIndex(trace.step) ? IndexObject(trace.index) : Json()},
        {"entries", entries},
    });
}

}  // namespace sentrel::cli

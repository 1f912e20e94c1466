#pragma once

#include <string>

#include "explanation.h"
#include "search/cracked_url.h"

namespace sentrel::cli {

// The tool's machine-readable output: one JSON object on one line (without its line end), in
// UTF-8, fields in a fixed order.

// scheme, schemeId, host, userName, password, path, tail, port.
std::string CrackedUrlJson(const CrackedUrl& cracked);

// url, normalised, cracked (as above) and keys, or crackFailure; decision, step, reason; index
// (outcome, schemeKey, hostKey, port, pathKey) and the entries behind a match. A field that does
// not apply is null.
std::string ExplanationJson(const Explanation& explanation);

}  // namespace sentrel::cli

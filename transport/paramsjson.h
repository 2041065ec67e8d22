// A Params in typed JSON, the body of the agent's remote calls to the administration server: an object
// of name -> value where every value is an object with exactly one member naming its type:
//   {"str": text} {"bool": b} {"int": n} {"long": "decimal"} {"dt": seconds} {"date": text}
//   {"bin": "base64"} {"float": x} {"double": x} {"params": object or null}
//   {"array": [value or null, ...]}
// Text is UTF-8 (a lone UTF-16 surrogate becomes U+FFFD). A date's bytes travel as the characters
// U+0000..U+00FF. A float or double that is not a number or is infinite travels as the string "NaN",
// "Infinity" or "-Infinity"; every other one as a JSON number of 17 significant digits, which reads back
// exactly.
#pragma once

#include <string>

#include "std/par/params.h"
#include "transport/errors.h"

namespace QZTRANSPORT {

std::string ParamsToJson(QZPAR::Params* pParams);
// Raises BAD_JSON (transport/errors.h) for anything but a well-formed typed-JSON Params: wrong JSON, an
// unknown type name, a value of the wrong kind or out of range, duplicate names, nesting deeper than 64
// levels, a member that is null.
QZSTD::CAutoPtr<QZPAR::Params> JsonToParams(const std::string& strJson);

}  // namespace QZTRANSPORT

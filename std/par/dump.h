// Text form of a Params for the trace: one line per value, nested trees indented by four spaces per
// level. The trace prints the result line by line.
//
//   count = (INT_T)5
//   title = (STRING_T)"Setup finished"
//   blob = BINARY_T (size =3)
//   when = (DATE_TIME_T)1700000000 (2023-11-14 22:13:20 UTC)
//   nested (PARAMS_T)
//       flag = (BOOL_T)true
//   nothing (PARAMS_T) <null>
//   list (ARRAY_T)
//       [0] = (LONG_T)7
//       [1] = <null>
//
// Only the size of a binary value is printed, never its bytes (it may hold secrets). Control
// characters in names and strings are escaped (\n, \t, \xNN) so that each value stays on one line.
#pragma once

#include <string>

#include "std/par/params.h"

namespace QZPAR {

// Nesting deeper than this (only a Params that contains itself gets there) prints a marker
// instead of recursing further.
inline constexpr int DUMP_MAX_DEPTH = 64;

// nIndent is the indentation level of the first line. A null Params gives "<null>\n".
std::wstring DumpParams(Params* pParams, int nIndent = 0);

}  // namespace QZPAR

// The platform side of qzpkg: the tool's command line and its output.
//
// Output is UTF-8 text. On Windows, a stream that is a console gets the text through WriteConsoleW,
// so that every character shows whatever the console's code page; a redirected stream gets UTF-8
// without a byte-order mark and with CRLF line ends.
#pragma once

#include <string>

#include "tools/qzpkg/qzpkgverbs.h"

namespace QZPKG {

ToolCommand GetToolCommand(int argc, char** argv);
void WriteToolOutput(const std::wstring& wstrText, bool bErrorStream);

}  // namespace QZPKG

// The Windows command line as an argument vector, split the way the Microsoft C runtime's start-up code
// splits it for main(), and the reverse: quoting arguments so that the split gives them back.
//
// Program name (argv[0]): it ends at the first space or tab outside double quotes; the quotes only
// delimit and are dropped; a backslash has no special meaning (a path such as "C:\dir\" stays as is).
// A command line that starts with a blank has an empty program name.
// The other arguments are separated by spaces and tabs outside quotes, and:
//   2n backslashes + quote   -> n backslashes, and the quote opens or closes a quoted part;
//   2n+1 backslashes + quote -> n backslashes and a literal quote;
//   backslashes not before a quote are literal;
//   a doubled quote inside a quoted part ("") -> one literal quote, and the quoted part goes on.
// The last rule is the one of the runtime since Visual C++ 2008 (msvcr90 and the Universal CRT). The
// older runtime (msvcrt.dll of Visual C++ 6) and CommandLineToArgvW end the quoted part after the
// literal quote instead: for `a"b"" c d` they give `ab"`, `c`, `d` where this gives `ab" c d`.
// An unterminated quoted part runs to the end of the command line. Like the runtime, which reads a C
// string, the split stops at an embedded U+0000.
//
// The runtime counts arguments and characters in a first pass and fills one allocation in a second;
// the split here produces the same vector in a single pass, since the two-pass form only serves that
// allocation.
#pragma once

#include <string>
#include <vector>

namespace QZSTD {

// Never empty: an empty command line gives one empty program name.
std::vector<std::wstring> SplitCommandLine(const std::wstring& wstrCmdLine);

// One argument (not the program name) written so that SplitCommandLine reads it back unchanged: as it
// is when it needs nothing, else in quotes with backslashes doubled before quotes and the end.
std::wstring QuoteCommandLineArg(const std::wstring& wstrArg);

// The program name and arguments as one command line: SplitCommandLine(JoinCommandLine(v)) == v.
// The program name cannot hold a quote (there is no escape for it) and no word can hold U+0000:
// QZError 1187 (QZSTD) "vecArgs". An empty vector gives an empty command line.
std::wstring JoinCommandLine(const std::vector<std::wstring>& vecArgs);

}  // namespace QZSTD

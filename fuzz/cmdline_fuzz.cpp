// The command-line splitter on arbitrary text. Property: joining the split words and splitting
// again gives the same words (what the agent stores as "cmdline" must come back as it was).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "std/cmdline.h"
#include "std/error.h"
#include "std/strconv.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    const std::wstring wstrCmdLine =
        QZSTD::Utf8ToWide(std::string(reinterpret_cast<const char*>(pData), nSize));
    const std::vector<std::wstring> vecArgs = QZSTD::SplitCommandLine(wstrCmdLine);
    if (vecArgs.empty())
        std::abort();
    std::wstring wstrJoined;
    try {
        wstrJoined = QZSTD::JoinCommandLine(vecArgs);
    } catch (const QZSTD::QZError&) {
        return 0;  // a program name with a quote cannot be written back; that is reported, not lost
    }
    if (QZSTD::SplitCommandLine(wstrJoined) != vecArgs)
        std::abort();
    return 0;
}

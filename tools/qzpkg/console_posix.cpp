// qzpkg on POSIX systems: the shell has split the command line; output is UTF-8.
#include <cstdio>

#include "std/strconv.h"
#include "tools/qzpkg/console.h"

namespace QZPKG {

ToolCommand GetToolCommand(int argc, char** argv)
{
    ToolCommand cmd;
    for (int i = 0; i < argc; ++i)
        cmd.m_vecArgs.push_back(QZSTD::Utf8ToWide(argv[i]));
    for (size_t i = 2; i < cmd.m_vecArgs.size(); ++i) {
        if (i > 2)
            cmd.m_wstrRestAfterVerb += L' ';
        cmd.m_wstrRestAfterVerb += cmd.m_vecArgs[i];
    }
    return cmd;
}

void WriteToolOutput(const std::wstring& wstrText, bool bErrorStream)
{
    const std::string strText = QZSTD::WideToUtf8(wstrText);
    std::FILE* pStream = bErrorStream ? stderr : stdout;
    std::fwrite(strText.data(), 1, strText.size(), pStream);
    std::fflush(pStream);
}

}  // namespace QZPKG

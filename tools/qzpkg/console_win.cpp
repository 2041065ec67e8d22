// qzpkg on Windows: the tool reads its own raw command line (the C runtime's split would already have
// taken the quotes of the command line that "argv" is to show), and writes to a console as wide text.
#include <windows.h>

#include <algorithm>
#include <string>

#include "std/cmdline.h"
#include "std/strconv.h"
#include "tools/qzpkg/console.h"

namespace QZPKG {
namespace {

constexpr size_t CONSOLE_CHUNK_CHARS = 8192;

void WriteConsoleText(HANDLE h, const std::wstring& wstrText)
{
    for (size_t i = 0; i < wstrText.size(); i += CONSOLE_CHUNK_CHARS) {
        const size_t n = std::min(CONSOLE_CHUNK_CHARS, wstrText.size() - i);
        DWORD nWritten = 0;
        if (!WriteConsoleW(h, wstrText.data() + i, static_cast<DWORD>(n), &nWritten, nullptr))
            return;
    }
}

void WriteUtf8Text(HANDLE h, const std::wstring& wstrText)
{
    std::wstring wstrCrLf;
    wstrCrLf.reserve(wstrText.size());
    for (const wchar_t c : wstrText) {
        if (c == L'\n')
            wstrCrLf += L'\r';
        wstrCrLf += c;
    }
    const std::string strText = QZSTD::WideToUtf8(wstrCrLf);
    DWORD nWritten = 0;
    WriteFile(h, strText.data(), static_cast<DWORD>(strText.size()), &nWritten, nullptr);
}

}  // namespace

ToolCommand GetToolCommand(int, char**)
{
    const std::wstring wstrCmdLine = GetCommandLineW();
    ToolCommand cmd;
    cmd.m_vecArgs = QZSTD::SplitCommandLine(wstrCmdLine);
    cmd.m_wstrRestAfterVerb = RestOfCommandLine(wstrCmdLine, 2);
    return cmd;
}

void WriteToolOutput(const std::wstring& wstrText, bool bErrorStream)
{
    HANDLE h = GetStdHandle(bErrorStream ? STD_ERROR_HANDLE : STD_OUTPUT_HANDLE);
    if (h == nullptr || h == INVALID_HANDLE_VALUE || wstrText.empty())
        return;
    DWORD nMode = 0;
    if (GetConsoleMode(h, &nMode))
        WriteConsoleText(h, wstrText);
    else
        WriteUtf8Text(h, wstrText);
}

}  // namespace QZPKG

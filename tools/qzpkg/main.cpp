// qzpkg: entry. The verbs write into buffers that go to the console or the redirected streams at the
// end, each in the form its platform needs (tools/qzpkg/console.h).
#include <exception>
#include <sstream>

#include "tools/qzpkg/console.h"
#include "tools/qzpkg/qzpkgverbs.h"

int main(int argc, char** argv)
{
    std::wostringstream out;
    std::wostringstream err;
    int nExit = QZPKG::Exit::FAILED;
    try {
        QZPKG::ToolCommand cmd = QZPKG::GetToolCommand(argc, argv);
        cmd.m_fnProgress = [](const std::wstring& wstrLine) { QZPKG::WriteToolOutput(wstrLine, true); };
        nExit = QZPKG::RunTool(cmd, out, err);
    } catch (const std::exception& e) {
        err << L"qzpkg: " << e.what() << L"\n";
    }
    QZPKG::WriteToolOutput(out.str(), false);
    QZPKG::WriteToolOutput(err.str(), true);
    return nExit;
}

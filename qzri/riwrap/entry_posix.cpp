// Process entry of the agent on POSIX systems. The system hands over an argument vector, not a command
// line; it is joined into the command line the agent would get on Windows, so that the keys are found
// and the saved command line is stored the same way on both.
#include <exception>
#include <string>
#include <vector>

#include "qzri/riwrap/qzriwrap.h"
#include "qzri/riwrap/riresult.h"
#include "std/cmdline.h"
#include "std/strconv.h"

int main(int argc, char** argv)
{
    try {
        std::vector<std::wstring> vecArgs;
        for (int i = 0; i < argc; ++i)
            vecArgs.push_back(QZSTD::Utf8ToWide(argv[i]));
        return QZRI::RunProcess(QZSTD::JoinCommandLine(vecArgs));
    } catch (...) {
        return QZRI::QZRI_RSLT_GENERAL_ERROR;
    }
}

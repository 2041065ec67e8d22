// qzpkg: the administrators' tool for looking into what the agent keeps and sees. Each verb is a
// function that writes to the streams it is given, so that the tests run them without a process.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace QZPKG {

namespace Exit {
enum : int
{
    OK = 0,
    // The verb failed: a missing file, a malformed value or file.
    FAILED = 1,
    // The command line of the tool itself was wrong.
    USAGE = 2,
};
}  // namespace Exit

struct ToolCommand
{
    // The tool's own words, program name first.
    std::vector<std::wstring> m_vecArgs;
    // The raw text after the verb, for "argv": on Windows the rest of the tool's own command line as
    // typed, elsewhere the words after the verb joined by single blanks.
    std::wstring m_wstrRestAfterVerb;
    // Where a long verb ("fetch") shows its progress at once, as one line rewritten in place; null: nowhere.
    std::function<void(const std::wstring&)> m_fnProgress;
};

// Runs the verb named by the command; results go to out, messages ("qzpkg: ...") to err.
int RunTool(const ToolCommand& cmd, std::wostream& out, std::wostream& err);

void PrintUsage(std::wostream& out);

// "state DIR": the run parameters of DIR's "$qzriwrp.ini" as the agent reads them.
int StateVerb(const std::wstring& wstrDir, std::wostream& out);
// "hex encode TEXT" / "hex decode TEXT": the "$HEX_" form of ini values.
int HexEncodeVerb(const std::wstring& wstrText, std::wostream& out);
int HexDecodeVerb(const std::wstring& wstrText, std::wostream& out);
// "argv CMDLINE": the argument vector the agent gets from CMDLINE, one word per line.
int ArgvVerb(const std::wstring& wstrCmdLine, std::wostream& out);
// "ss dump FILE": every product, version and section of a settings storage with its values; the task
// entries of a subscription storage also grouped by task id.
int SsDumpVerb(const std::wstring& wstrFile, std::wostream& out);
// "params dump FILE": a binary Params file.
int ParamsDumpVerb(const std::wstring& wstrFile, std::wostream& out);
// "ini [--utf8] FILE": the tree the agent's ini reader makes of FILE (ANSI unless --utf8), printed as the
// trace prints it.
int IniVerb(const std::wstring& wstrFile, bool bUtf8, std::wostream& out);
// "qpd FILE SECTION KEY": the value the agent sees in a package description and whether it came from
// the qpd file or its UTF-8 companion, or "absent".
int QpdVerb(const std::wstring& wstrFile, const std::wstring& wstrSection, const std::wstring& wstrKey,
            std::wostream& out);

// "server DIR [TASK_ID]": whether the administration server that DIR's connection settings name answers
// this host: the settings, the host id, then one ShouldForceReboot2 for TASK_ID ("qzpkg-check" when none
// is given) over the real connection; a failure said in plain words.
int ServerVerb(const std::wstring& wstrDir, const std::wstring& wstrTaskId, std::wostream& out);

// "uninstall DIR": how the agent would resolve the product that DIR's package description names in
// [Uninstall] and what it would start, without starting anything (the password masked).
int UninstallVerb(const std::wstring& wstrDir, std::wostream& out);

// "removal [WORKDIR]": the state of the incompatible-software removal in its work folder (this computer's
// when none is given): the four lists of its stat file and the saved reboot-agent command line.
int RemovalVerb(const std::wstring& wstrWorkDir, std::wostream& out);

// "fetch DIR": the package's download step as the agent runs it (the management agent's proxy, the
// hash, unpacking, the copies, should_download), with a progress line.
int FetchVerb(const std::wstring& wstrDir, const std::function<void(const std::wstring&)>& fnProgress,
              std::wostream& out);

// "result DIR": the result files the agent leaves in DIR (setup.log, the two description files,
// askusr.log), each value explained.
int ResultVerb(const std::wstring& wstrDir, std::wostream& out);

// The raw text of a command line after its first nWords words (the program name counting as one)
// and the blanks after them, found by the same rules as the C runtime's splitter (std/cmdline.h), so
// that the rest splits into exactly the words that follow.
std::wstring RestOfCommandLine(const std::wstring& wstrCmdLine, size_t nWords);

}  // namespace QZPKG

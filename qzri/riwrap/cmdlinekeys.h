// The keys of the agent's command line and how they are found.
//
// The agent takes positional words and words of the form KEY=value. A key counts as present when its
// text occurs anywhere in the whole command line (case-sensitive, program name included): the
// administration server and the agent's own service build these command lines and have always been
// matched this way, so a stricter parse would reject lines that work today. A key's value is the text
// after "KEY=" up to the end of the word that holds it, the words being split the way the C runtime
// splits them (std/cmdline.h), so a quoted word ("TASK_ID=a b" or TASK_ID="a b") gives its unquoted text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace QZRI {

namespace Keys {
// The run was requested through the administration server's gateway.
inline constexpr std::wstring_view PXG_REQUEST = L"PxgRequest";
// This process is the GUI process started in a user's session, not an installation run.
inline constexpr std::wstring_view GUI_PROCESS = L"QZRI$GUI";
inline constexpr std::wstring_view TASK_ID = L"TASK_ID";
inline constexpr std::wstring_view RI_ID = L"RI_ID";
// Started by the agent's own service; the value is the service id.
inline constexpr std::wstring_view SERVICE_RESTART = L"QZRI$ID";
inline constexpr std::wstring_view MASTER_SERVICE_ID = L"MASTER_SERVICE_ID";
inline constexpr std::wstring_view START_COUNTER = L"QZRI_START_CNT";
inline constexpr std::wstring_view RUN_AS_PATCH = L"QZRIWRAP_RUN_AS_PATCH";
// The incompatible-software removal run.
inline constexpr std::wstring_view COMPETITOR_REMOVAL = L"QZRI$CMTRS";
// The service kept when the driver asks for all other agents' services to be deleted.
inline constexpr std::wstring_view SERVICE_ID = L"service_id";
// This start must hand over to a new reboot worker. Nothing passes it until the service mode does.
inline constexpr std::wstring_view NEW_REBOOT_WORKER = L"QZRI$RBTWRK";
}  // namespace Keys

// True when the key's text occurs in the command line.
bool HasKey(const std::wstring& wstrCmdLine, std::wstring_view wsvKey);

// The value of KEY=value: the rest of the first word that holds "KEY=". Empty when no word holds it
// (also when the key is present only as a flag without "=").
std::wstring GetKeyValue(const std::wstring& wstrCmdLine, std::wstring_view wsvKey);

// The silent switch: a word that is exactly "-s", "-S", "/s" or "/S" once a leading and a trailing
// double quote are removed. "-silent" or "/s=1" are not the switch.
bool IsSilentSwitch(const std::wstring& wstrWord);
// True when a word of the argument vector after the program name is the silent switch.
bool HasSilentSwitch(const std::vector<std::wstring>& vecArgs);

// A plain decimal conversion as the C runtime's: leading blanks, an optional sign, then digits up to
// the first other character. No digits gives 0; values beyond 32 bits are clamped to the int range.
int ParseDecimal(const std::wstring& wstrText);

}  // namespace QZRI

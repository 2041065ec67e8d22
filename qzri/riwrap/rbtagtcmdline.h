// The command line of the reboot agent "qzrbtagt.exe" (docs/reboot-agent.md), in one place for the
// agent that starts it and the program that reads it.
#pragma once

#include <string>

namespace QZRI {

// $HEX_ of the command line to run once the computer has restarted.
inline constexpr const wchar_t* RUN_AFTER_RESTART_KEY = L"RunAfterRestart";
// The task the answers are reported for.
inline constexpr const wchar_t* TASK_ID_KEY = L"TASK_ID";
// $HEX_ of the agent's file name in the package folder, which takes a reboot answer to the server.
inline constexpr const wchar_t* AGENT_KEY = L"Agent";
inline constexpr const wchar_t* DEFAULT_AGENT = L"qzriwrap.exe";

// "\"<program>\"" with RunAfterRestart, TASK_ID and Agent for those that are given.
std::wstring RebootAgentCommandLine(const std::wstring& wstrProgram, const std::wstring& wstrRunAfterRestart,
                                    const std::wstring& wstrTaskId = {}, const std::wstring& wstrAgent = {});

}  // namespace QZRI

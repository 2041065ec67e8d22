// The exit codes of the agent process. The administration server and the scripts that start the agent
// read them; docs/agent.md lists them for administrators. All stay below 256, so that they survive
// systems that keep only the low 8 bits of an exit status.
//
// A run handed to the installation driver ends with the driver's result code, passed through
// unchanged (QZRI_RSLT_NO_ERROR, 0, is success). The codes below are the agent's own outcomes of
// the steps before the driver; the driver does not use them.
#pragma once

namespace QZRI {

namespace ExitCode {
enum : int
{
    SUCCESS = 0,
    // 1 is the exit code of a fail-fast (std/failfast.h): a broken invariant ended the process.
    FAIL_FAST = 1,
    // An error that no routine expected reached QZCS_Main or the process entry.
    GENERAL_ERROR = 2,

    // Initialisation failed: the agent's folder could not be found, the run-parameters file is
    // unreadable, ...
    INIT_FAILED = 10,
    // The package folder holds no package description (reported "QZRI_MSG_DATA_FILE_NOT_EXISTS").
    NO_PACKAGE_DESCRIPTION = 11,
    // Restarted by the service while the setup was running (reported "QZRI_MSG_DATA_UNEXPECTED_REBOOT").
    UNEXPECTED_REBOOT = 12,
    // Skipped: another administration server manages this host (reported "QZRI_MSG_DATA_COMPLETE_SKIPPED").
    MANAGED_BY_OTHER_SERVER = 13,
    // A service restart found an unknown action in "$qzriwrp.ini": nothing was run, the service was
    // removed (docs/agent.md).
    DAMAGED_STATE = 14,

    // The run needs a part of the agent that this build does not contain yet.
    RUN_EXECUTABLE_NOT_AVAILABLE = 20,
    SERVICE_MODE_NOT_AVAILABLE = 21,
    ASK_USER_NOT_AVAILABLE = 22,
    REBOOT_WORKER_NOT_AVAILABLE = 23,
    SERVICE_CLEANUP_NOT_AVAILABLE = 24,
};
}  // namespace ExitCode

}  // namespace QZRI

// The result of a run: the record that the result evaluation fills and the reports carry, and the
// table of the agent's own result codes. The result code is also the agent's process exit code.
//
// The agent's own codes (other than 0, the fail-fast 1 and the two removal results) have bit 29 set
// (0x20000000), the bit Windows leaves to applications: no Windows or Windows Installer error code has
// it, and no setup program returns such a value by accident, so an administrator can always tell the
// agent's code from the setup's. A code that is not in the table is the setup's own, passed on
// unchanged. The low byte of each agent code is 0xC0 or above, so that where only 8 bits of an exit
// status survive (a Linux shell, Wine's exit status on Linux) the codes still differ from 0, 1 and the
// small codes setups return.
#pragma once

#include <cstdint>
#include <string>

namespace QZRI {

enum QzriResultCode : int32_t
{
    QZRI_RSLT_NO_ERROR = 0,
    // A broken invariant ended the process at once (std/failfast.h).
    QZRI_RSLT_FAIL_FAST = 1,
    // Incompatible-software removal: a product asks for a restart to finish its removal.
    QZRI_RSLT_CLEANER_RESTART_NEEDED = -50,
    // Incompatible-software removal: a product could not be removed, or the list could not be taken.
    QZRI_RSLT_CLEANER_FAILED = -100,

    // An error that no routine expected reached QZCS_Main or the process entry.
    QZRI_RSLT_GENERAL_ERROR = 0x200000C0,
    // Initialisation failed: the agent's folder unknown, the run-parameters file unreadable, ...
    QZRI_RSLT_INIT_FAILED = 0x200000C1,
    // The package folder holds no package description ("QZRI_MSG_DATA_FILE_NOT_EXISTS").
    QZRI_RSLT_NO_PACKAGE_DESCRIPTION = 0x200000C2,
    // Restarted by the service while the setup was running ("QZRI_MSG_DATA_UNEXPECTED_REBOOT").
    QZRI_RSLT_UNEXPECTED_REBOOT = 0x200000C3,
    // Skipped: another administration server manages this host ("QZRI_MSG_DATA_COMPLETE_SKIPPED").
    QZRI_RSLT_MANAGED_BY_OTHER_SERVER = 0x200000C4,
    // A service restart found an unknown action in "$qzriwrp.ini": nothing ran, the service was removed.
    QZRI_RSLT_DAMAGED_STATE = 0x200000C5,
    // The setup or its result file did not finish in time ("QZRI_MSG_DATA_TIMEOUT_EXPIRED").
    QZRI_RSLT_TIMEOUT = 0x200000C6,
    // A downloaded package failed its hash or signer check.
    QZRI_RSLT_VERIFICATION_FAILED = 0x200000C7,
    // The package's files could not be copied or unpacked.
    QZRI_RSLT_COPY_FAILED = 0x200000C8,
    // The package's setup program is not in the package folder ("QZRI_MSG_DATA_FILE_NOT_EXISTS").
    QZRI_RSLT_SETUP_NOT_FOUND = 0x200000C9,
    // The setup asked for a reboot and a rerun more often than the package allows ("MaxRestarts").
    QZRI_RSLT_REBOOT_LOOP = 0x200000CA,
    // The package wants the user's consent and the user chose "Later" ("QZRI_MSG_DATA_USER_DECLINED").
    QZRI_RSLT_USER_DECLINED = 0x200000CB,
    // The package wants the user's consent and nobody could be asked ("QZRI_MSG_DATA_USER_NOT_ASKED").
    QZRI_RSLT_USER_NOT_ASKED = 0x200000CC,
    // A group uninstallation on the administration server's own host ("QZRI_MSG_DATA_LOCAL_SERVER_WRN").
    QZRI_RSLT_LOCAL_SERVER = 0x200000CD,
    // Windows Installer stayed busy with another installation past the package's limit
    // ("QZRI_MSG_DATA_INSTALLER_BUSY"): retry later; nothing was installed.
    QZRI_RSLT_INSTALLER_BUSY = 0x200000CE,

    // The run needs a part of the agent that this build does not contain yet (the trace says which).
    QZRI_RSLT_NOT_AVAILABLE = 0x200000D0,
    QZRI_RSLT_SERVICE_MODE_NOT_AVAILABLE = 0x200000D1,
    QZRI_RSLT_REBOOT_WORKER_NOT_AVAILABLE = 0x200000D3,
};

// The name of one of the codes above ("QZRI_RSLT_TIMEOUT"); null for any other code, which is then the
// setup's own.
const wchar_t* ResultCodeName(int32_t nCode);

// For the trace and the administrators' tool: "QZRI_RSLT_TIMEOUT (536871110, 0x200000C6, the agent's
// own)" or "1603 (the setup's own)".
std::wstring DescribeResultCode(int32_t nCode);

// The outcome of one run, as the result evaluation fills it and the reports write it.
struct RiResult
{
    // 0: the setup process was run and its result is known ("ProcessResultCode").
    int32_t m_nProcessResult = 0;
    // The QZRI_RSLT_* code or the setup's own ("ResultCode").
    int32_t m_nResultCode = QZRI_RSLT_NO_ERROR;
    // "ScriptResultCode", also the task's "TASK_ID_RSLT_CODE".
    int32_t m_nScriptResultCode = 0;
    // "ErrorClass"; 32: a restart is needed, 33: a restart and a second run.
    int32_t m_nErrClass = 0;
    std::wstring m_wstrDescription;
    // 0: no reboot needed.
    int32_t m_rebootState = 0;
};

}  // namespace QZRI

// Names of the agent's result codes.
#include "qzri/riwrap/riresult.h"

#include <cstdio>

namespace QZRI {

const wchar_t* ResultCodeName(int32_t nCode)
{
    switch (nCode) {
        case QZRI_RSLT_NO_ERROR:
            return L"QZRI_RSLT_NO_ERROR";
        case QZRI_RSLT_FAIL_FAST:
            return L"QZRI_RSLT_FAIL_FAST";
        case QZRI_RSLT_CLEANER_RESTART_NEEDED:
            return L"QZRI_RSLT_CLEANER_RESTART_NEEDED";
        case QZRI_RSLT_CLEANER_FAILED:
            return L"QZRI_RSLT_CLEANER_FAILED";
        case QZRI_RSLT_GENERAL_ERROR:
            return L"QZRI_RSLT_GENERAL_ERROR";
        case QZRI_RSLT_INIT_FAILED:
            return L"QZRI_RSLT_INIT_FAILED";
        case QZRI_RSLT_NO_PACKAGE_DESCRIPTION:
            return L"QZRI_RSLT_NO_PACKAGE_DESCRIPTION";
        case QZRI_RSLT_UNEXPECTED_REBOOT:
            return L"QZRI_RSLT_UNEXPECTED_REBOOT";
        case QZRI_RSLT_MANAGED_BY_OTHER_SERVER:
            return L"QZRI_RSLT_MANAGED_BY_OTHER_SERVER";
        case QZRI_RSLT_DAMAGED_STATE:
            return L"QZRI_RSLT_DAMAGED_STATE";
        case QZRI_RSLT_TIMEOUT:
            return L"QZRI_RSLT_TIMEOUT";
        case QZRI_RSLT_VERIFICATION_FAILED:
            return L"QZRI_RSLT_VERIFICATION_FAILED";
        case QZRI_RSLT_COPY_FAILED:
            return L"QZRI_RSLT_COPY_FAILED";
        case QZRI_RSLT_SETUP_NOT_FOUND:
            return L"QZRI_RSLT_SETUP_NOT_FOUND";
        case QZRI_RSLT_REBOOT_LOOP:
            return L"QZRI_RSLT_REBOOT_LOOP";
        case QZRI_RSLT_USER_DECLINED:
            return L"QZRI_RSLT_USER_DECLINED";
        case QZRI_RSLT_USER_NOT_ASKED:
            return L"QZRI_RSLT_USER_NOT_ASKED";
        case QZRI_RSLT_LOCAL_SERVER:
            return L"QZRI_RSLT_LOCAL_SERVER";
        case QZRI_RSLT_INSTALLER_BUSY:
            return L"QZRI_RSLT_INSTALLER_BUSY";
        case QZRI_RSLT_NOT_AVAILABLE:
            return L"QZRI_RSLT_NOT_AVAILABLE";
        case QZRI_RSLT_SERVICE_MODE_NOT_AVAILABLE:
            return L"QZRI_RSLT_SERVICE_MODE_NOT_AVAILABLE";
        case QZRI_RSLT_REBOOT_WORKER_NOT_AVAILABLE:
            return L"QZRI_RSLT_REBOOT_WORKER_NOT_AVAILABLE";
        default:
            return nullptr;
    }
}

std::wstring DescribeResultCode(int32_t nCode)
{
    const wchar_t* szName = ResultCodeName(nCode);
    if (!szName)
        return std::to_wstring(nCode) + L" (the setup's own)";
    wchar_t szHex[16] = {};
    std::swprintf(szHex, 16, L"0x%X", static_cast<uint32_t>(nCode));
    return std::wstring(szName) + L" (" + std::to_wstring(nCode) + L", " + szHex + L", the agent's own)";
}

}  // namespace QZRI

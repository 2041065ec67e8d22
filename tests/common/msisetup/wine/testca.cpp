// Custom actions of the test packages (a DLL stored in the package's Binary table): one hands the
// installation a property the way the management agent's packages do, one fails.
#include <windows.h>

#include <msi.h>
#include <msiquery.h>

extern "C" __declspec(dllexport) UINT __stdcall SendExternalProperty(MSIHANDLE hInstall)
{
    const MSIHANDLE hRecord = ::MsiCreateRecord(2);
    ::MsiRecordSetStringW(hRecord, 0, L"QZAK_EXTERNAL_PROPERTY [1]=[2]");
    ::MsiRecordSetStringW(hRecord, 1, L"QZ_LICENSE_KEY");
    ::MsiRecordSetStringW(hRecord, 2, L"ABCD-1234");
    ::MsiProcessMessage(hInstall, INSTALLMESSAGE_INFO, hRecord);
    ::MsiCloseHandle(hRecord);
    return ERROR_SUCCESS;
}

extern "C" __declspec(dllexport) UINT __stdcall FailAction(MSIHANDLE)
{
    return ERROR_INSTALL_FAILURE;
}

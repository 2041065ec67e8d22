// The list of handles a child may inherit (PROC_THREAD_ATTRIBUTE_HANDLE_LIST). Without it a child
// created with bInheritHandles inherits every inheritable handle of the agent, including those other
// threads opened for their own children at the same moment. Windows only.
#pragma once

#include <windows.h>

#include <vector>

#include "std/qzbase.h"

namespace QZSTD {

struct ProcessHandleList : QZBaseQI
{
    static constexpr const char* QZ_IID = "QZSTD::ProcessHandleList";
    // Builds the list for vecHandles (at least one, assertion "dwHandlesCount > 0") and returns the
    // extended start-up information that carries it, with si copied in (cb set for STARTUPINFOEXW).
    // Null when the attribute-list functions are missing from "kernel32.dll": then plain inheritance
    // of every inheritable handle is what the caller gets. Valid until FreeHandleList or destruction.
    virtual STARTUPINFOEXW* GetHandleList(const std::vector<HANDLE>& vecHandles, const STARTUPINFOW& si) = 0;
    virtual void FreeHandleList() = 0;
    // EXTENDED_STARTUPINFO_PRESENT when a list was made, 0 otherwise.
    virtual DWORD GetCreationFlags() = 0;
};

// A new ProcessHandleListImpl with one reference; *ppList must be null.
void CreateProcessHandleList(ProcessHandleList** ppList);

}  // namespace QZSTD

// ProcessHandleListImpl: the attribute-list functions are looked up at run time, so the agent still
// starts (with plain inheritance) where kernel32 lacks them.
#include "common/win32_handlelist.h"

#include "std/trace.h"

namespace QZSTD {
namespace {

using InitializeFn = BOOL(WINAPI*)(LPPROC_THREAD_ATTRIBUTE_LIST, DWORD, DWORD, PSIZE_T);
using UpdateFn = BOOL(WINAPI*)(LPPROC_THREAD_ATTRIBUTE_LIST, DWORD, DWORD_PTR, PVOID, SIZE_T, PVOID, PSIZE_T);
using DeleteFn = VOID(WINAPI*)(LPPROC_THREAD_ATTRIBUTE_LIST);

template <class F>
F Lookup(const char* szName)
{
    HMODULE hKernel = ::GetModuleHandleW(L"kernel32.dll");
    return hKernel ? reinterpret_cast<F>(reinterpret_cast<void*>(::GetProcAddress(hKernel, szName)))
                   : nullptr;
}

class ProcessHandleListImpl : public ProcessHandleList
{
public:
    ~ProcessHandleListImpl() override { FreeHandleList(); }

    bool QueryInterface(const char* szIid, void** ppObject) override
    {
        QZ_ASSERT(ppObject);
        const std::string_view sv = szIid ? szIid : "";
        if (sv != "QZSTD::QZBaseQI" && sv != QZ_IID)
            return false;
        *ppObject = static_cast<ProcessHandleList*>(this);
        AddRef();
        return true;
    }

    STARTUPINFOEXW* GetHandleList(const std::vector<HANDLE>& vecHandles, const STARTUPINFOW& si) override
    {
        QZ_TRACE_SCOPE("QZSTD", "QZSTD::ProcessHandleListImpl::GetHandleList");
        const DWORD dwHandlesCount = static_cast<DWORD>(vecHandles.size());
        QZ_ASSERT(dwHandlesCount > 0);
        FreeHandleList();
        const auto pfnInit = Lookup<InitializeFn>("InitializeProcThreadAttributeList");
        const auto pfnUpdate = Lookup<UpdateFn>("UpdateProcThreadAttribute");
        if (!pfnInit || !pfnUpdate)
            return nullptr;
        QZ_TRACE_D(L"Methods are available");
        SIZE_T nSize = 0;
        pfnInit(nullptr, 1, 0, &nSize);
        if (nSize == 0)
            QZ_THROW_SYSTEM();
        QZ_TRACE_D(L"Attribute list size is got");
        m_pList = static_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(::HeapAlloc(::GetProcessHeap(), 0, nSize));
        if (!m_pList)
            QZ_THROW_SYSTEM_CODE(ERROR_NOT_ENOUGH_MEMORY);
        QZ_TRACE_D(L"Attribute list is allocated");
        if (!pfnInit(m_pList, 1, 0, &nSize)) {
            const DWORD dwErr = ::GetLastError();
            FreeMemory();
            QZ_THROW_SYSTEM_CODE(dwErr);
        }
        m_bInitialized = true;
        QZ_TRACE_D(L"Attribute list is initialized");
        m_vecHandles = vecHandles;
        if (!pfnUpdate(m_pList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_vecHandles.data(),
                       m_vecHandles.size() * sizeof(HANDLE), nullptr, nullptr)) {
            const DWORD dwErr = ::GetLastError();
            FreeHandleList();
            QZ_THROW_SYSTEM_CODE(dwErr);
        }
        QZ_TRACE_D(L"Attribute list is filled");
        m_si = {};
        m_si.StartupInfo = si;
        m_si.StartupInfo.cb = sizeof(STARTUPINFOEXW);
        m_si.lpAttributeList = m_pList;
        QZ_TRACE_I(L"Handle List created successfully: %d", static_cast<int>(dwHandlesCount));
        return &m_si;
    }

    void FreeHandleList() override
    {
        QZ_TRACE_SCOPE("QZSTD", "QZSTD::ProcessHandleListImpl::FreeHandleList");
        if (m_bInitialized) {
            if (const auto pfnDelete = Lookup<DeleteFn>("DeleteProcThreadAttributeList")) {
                QZ_TRACE_D(L"Method to delete attribute list is available");
                pfnDelete(m_pList);
                QZ_TRACE_D(L"Attribute list is deleted");
            }
            m_bInitialized = false;
        }
        FreeMemory();
    }

    DWORD GetCreationFlags() override { return m_bInitialized ? EXTENDED_STARTUPINFO_PRESENT : 0; }

private:
    void FreeMemory()
    {
        QZ_TRACE_SCOPE("QZSTD", "QZSTD::ProcessHandleListImpl::FreeHandleList");
        if (m_pList && !::HeapFree(::GetProcessHeap(), 0, m_pList))
            QZ_TRACE_E(L"HeapFree failed with error: %d", static_cast<int>(::GetLastError()));
        m_pList = nullptr;
    }

    LPPROC_THREAD_ATTRIBUTE_LIST m_pList = nullptr;
    bool m_bInitialized = false;
    std::vector<HANDLE> m_vecHandles;  // the attribute points into this; it must outlive the list
    STARTUPINFOEXW m_si = {};
};

}  // namespace

void CreateProcessHandleList(ProcessHandleList** ppList)
{
    QZ_ASSERT(ppList);
    QZ_ASSERT(*ppList == nullptr);
    *ppList = new RcClassImpl<ProcessHandleListImpl>();
}

}  // namespace QZSTD

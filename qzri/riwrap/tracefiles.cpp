// Choosing, rotating and opening the agent's trace file.
#include "qzri/riwrap/tracefiles.h"

#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/cmdlinekeys.h"
#include "qzri/riwrap/rebootrequest.h"
#include "std/trace.h"

namespace QZRI {
namespace {

constexpr const char* MODULE = "QZRIWRP";
// The component and version under which the maker's tools file the agent's traces.
constexpr const wchar_t* TRACE_COMPONENT = L"1093";
constexpr const wchar_t* TRACE_VERSION = L"1.0.0.0";
constexpr QZSTD::TraceLevel TRACE_LEVEL = QZSTD::TL_DEBUG;

// What StartTrace found before the trace was open, written once it is.
struct TraceStartNotes
{
    TraceFolderChoice folder;
    std::vector<std::wstring> vecNotRotated;
    bool bLeftoverNotRemoved = false;
    // The file this run writes.
    std::wstring wstrFile;
};

// The trace file of a run that writes beside the main chain, never rotating it; empty for a main run.
std::wstring SideTraceFile(const std::wstring& wstrCmdLine)
{
    if (HasKey(wstrCmdLine, Keys::COMPETITOR_REMOVAL))
        return COMPETITOR_TRACE_FILE;
    if (!HasKey(wstrCmdLine, Keys::PXG_REQUEST))
        return std::wstring();
    const std::wstring wstrRequest = RequestFileNameOf(wstrCmdLine);
    if (wstrRequest.empty())
        return REBOOT_REQUEST_TRACE_FILE;
    return wstrRequest.substr(0, wstrRequest.size() - 4) + L".txt";
}

bool OpenMainTrace(const std::wstring& wstrCmdLine, AgentOs& os, TraceStartNotes& notes)
{
    const std::wstring& wstrFolder = notes.folder.m_wstrFolder;
    notes.vecNotRotated = RotateTraceFiles(os, wstrFolder);
    if (!HasKey(wstrCmdLine, Keys::SERVICE_RESTART))
        notes.bLeftoverNotRemoved = !os.RemoveFile(wstrFolder + TRACE_FILE);
    notes.wstrFile = wstrFolder + TRACE_FILE;
    if (QZSTD::TraceOpen(notes.wstrFile, TRACE_LEVEL, true))
        return true;
    notes.wstrFile = wstrFolder + CONCURRENT_TRACE_FILE;
    return QZSTD::TraceOpen(notes.wstrFile, TRACE_LEVEL, true);
}

void TraceStartNotesOf(const std::wstring& wstrFile, const TraceStartNotes& notes)
{
    QZ_TRACE_SCOPE(MODULE, "StartTrace");
    QZ_TRACE_I(L"%hs: Trace of component %ls, version %ls: '%ls'.\n", QZ_SCOPE_NAME, TRACE_COMPONENT,
               TRACE_VERSION, wstrFile);
    if (!notes.folder.m_wstrRejectedEnvValue.empty())
        QZ_TRACE_W(L"%hs: %ls = '%ls' is not a writable folder; the temporary folder is used.\n",
                   QZ_SCOPE_NAME, TRACE_FOLDER_ENV, notes.folder.m_wstrRejectedEnvValue);
    for (const std::wstring& wstrName : notes.vecNotRotated)
        QZ_TRACE_W(L"%hs: '%ls' could not be renamed; the older traces were left as they were.\n",
                   QZ_SCOPE_NAME, wstrName);
    if (notes.bLeftoverNotRemoved)
        QZ_TRACE_W(L"%hs: The trace left by an earlier run could not be removed.\n", QZ_SCOPE_NAME);
    if (notes.wstrFile.ends_with(CONCURRENT_TRACE_FILE))
        QZ_TRACE_W(L"%hs: '%ls' is held by another run of the agent; this run writes here.\n", QZ_SCOPE_NAME,
                   TRACE_FILE);
}

}  // namespace

std::wstring TraceGenerationName(int nGeneration)
{
    if (nGeneration == 0)
        return TRACE_FILE;
    std::wstring wstrName = L"$qzriwrp";
    for (int i = 0; i < nGeneration; ++i)
        wstrName += L".bak";
    return wstrName;
}

TraceFolderChoice ChooseTraceFolder(AgentOs& os)
{
    TraceFolderChoice choice;
    if (const std::optional<std::wstring> wstrEnv = os.GetEnvValue(TRACE_FOLDER_ENV);
        wstrEnv && !wstrEnv->empty()) {
        if (os.IsWritableFolder(*wstrEnv)) {
            choice.m_wstrFolder = WithTrailingSeparator(*wstrEnv);
            return choice;
        }
        choice.m_wstrRejectedEnvValue = *wstrEnv;
    }
    choice.m_wstrFolder = WithTrailingSeparator(os.GetTempFolder());
    return choice;
}

std::vector<std::wstring> RotateTraceFiles(AgentOs& os, const std::wstring& wstrFolder)
{
    std::vector<std::wstring> vecNotMoved;
    for (int nGeneration = TRACE_GENERATIONS - 2; nGeneration >= 0; --nGeneration) {
        const std::wstring wstrFrom = wstrFolder + TraceGenerationName(nGeneration);
        if (!os.FileExists(wstrFrom))
            continue;
        if (!os.RenameFile(wstrFrom, wstrFolder + TraceGenerationName(nGeneration + 1))) {
            vecNotMoved.push_back(TraceGenerationName(nGeneration));
            break;
        }
    }
    return vecNotMoved;
}

bool StartTrace(const std::wstring& wstrCmdLine, AgentOs& os)
{
    TraceStartNotes notes;
    notes.folder = ChooseTraceFolder(os);
    const std::wstring wstrSideFile = SideTraceFile(wstrCmdLine);
    if (!wstrSideFile.empty())
        notes.wstrFile = notes.folder.m_wstrFolder + wstrSideFile;
    // A task's reboot request may be made again (the same task run anew): its trace goes on.
    const bool bAppend = HasKey(wstrCmdLine, Keys::PXG_REQUEST);
    const bool bOpened = !wstrSideFile.empty() ? QZSTD::TraceOpen(notes.wstrFile, TRACE_LEVEL, bAppend)
                                               : OpenMainTrace(wstrCmdLine, os, notes);
    if (bOpened)
        TraceStartNotesOf(notes.wstrFile, notes);
    return bOpened;
}

}  // namespace QZRI

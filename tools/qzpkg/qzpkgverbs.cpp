// The verbs of qzpkg.
#include "tools/qzpkg/qzpkgverbs.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "common/ansicp.h"
#include "common/inifileparser.h"
#include "common/qpdfile.h"
#include "common/qztsk.h"
#include "common/registry.h"
#include "common/ristrutils.h"
#include "qzri/riwrap/agentos.h"
#include "qzri/riwrap/agentservices.h"
#include "qzri/riwrap/competitor.h"
#include "qzri/riwrap/download.h"
#include "qzri/riwrap/pkgsettings.h"
#include "qzri/riwrap/resultreport.h"
#include "qzri/riwrap/riresult.h"
#include "qzri/riwrap/riwrpdata.h"
#include "qzri/riwrap/servcon.h"
#include "qzri/riwrap/uninstall.h"
#include "std/cmdline.h"
#include "std/error.h"
#include "std/fspath.h"
#include "std/par/dump.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "std/profile.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "transport/errors.h"

namespace QZPKG {
namespace {

namespace fs = std::filesystem;

class UsageError : public std::exception
{
public:
    explicit UsageError(std::wstring wstrWhy) : m_wstrWhy(std::move(wstrWhy)) {}
    const std::wstring& Why() const { return m_wstrWhy; }
    const char* what() const noexcept override { return "usage"; }

private:
    std::wstring m_wstrWhy;
};

bool IsBlank(wchar_t c)
{
    return c == L' ' || c == L'\t';
}

size_t SkipBlanks(const std::wstring& wstr, size_t i)
{
    while (i < wstr.size() && IsBlank(wstr[i]))
        ++i;
    return i;
}

// The program name ends at the first blank outside quotes; quotes only delimit.
size_t SkipProgramName(const std::wstring& wstr)
{
    bool bInQuotes = false;
    size_t i = 0;
    for (; i < wstr.size(); ++i) {
        if (wstr[i] == L'"')
            bInQuotes = !bInQuotes;
        else if (!bInQuotes && IsBlank(wstr[i]))
            break;
    }
    return i;
}

// One argument after the program name: backslashes matter only before a quote, an odd number of them
// makes the quote literal, and "" inside a quoted part is a literal quote that keeps the part open.
size_t SkipArgument(const std::wstring& wstr, size_t i)
{
    bool bInQuotes = false;
    while (i < wstr.size() && (bInQuotes || !IsBlank(wstr[i]))) {
        if (wstr[i] == L'\\') {
            size_t nSlashes = 0;
            while (i < wstr.size() && wstr[i] == L'\\') {
                ++nSlashes;
                ++i;
            }
            if (i < wstr.size() && wstr[i] == L'"' && nSlashes % 2 == 1)
                ++i;
        } else if (wstr[i] == L'"') {
            if (bInQuotes && i + 1 < wstr.size() && wstr[i + 1] == L'"')
                ++i;
            else
                bInQuotes = !bInQuotes;
            ++i;
        } else {
            ++i;
        }
    }
    return i;
}

const std::wstring& Arg(const ToolCommand& cmd, size_t nIndex, const wchar_t* szWhat)
{
    if (nIndex >= cmd.m_vecArgs.size())
        throw UsageError(std::wstring(L"missing ") + szWhat);
    return cmd.m_vecArgs[nIndex];
}

void ExpectArgCount(const ToolCommand& cmd, size_t nCount)
{
    if (cmd.m_vecArgs.size() > nCount)
        throw UsageError(L"unexpected argument '" + cmd.m_vecArgs[nCount] + L"'");
}

void RequireFile(const std::wstring& wstrFile)
{
    std::error_code ec;
    if (!fs::is_regular_file(fs::path(wstrFile), ec))
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrFile);
}

int RunHexVerb(const ToolCommand& cmd, std::wostream& out)
{
    const std::wstring& wstrHow = Arg(cmd, 2, L"'encode' or 'decode'");
    const std::wstring& wstrText = Arg(cmd, 3, L"TEXT");
    ExpectArgCount(cmd, 4);
    if (wstrHow == L"encode")
        return HexEncodeVerb(wstrText, out);
    if (wstrHow == L"decode")
        return HexDecodeVerb(wstrText, out);
    throw UsageError(L"unknown hex operation '" + wstrHow + L"'");
}

int RunDumpVerb(const ToolCommand& cmd, std::wostream& out,
                int (*pfnDump)(const std::wstring&, std::wostream&))
{
    if (Arg(cmd, 2, L"'dump'") != L"dump")
        throw UsageError(L"unknown operation '" + cmd.m_vecArgs[2] + L"'");
    const std::wstring& wstrFile = Arg(cmd, 3, L"FILE");
    ExpectArgCount(cmd, 4);
    return pfnDump(wstrFile, out);
}

int RunVerb(const ToolCommand& cmd, std::wostream& out)
{
    const std::wstring& wstrVerb = Arg(cmd, 1, L"verb");
    if (wstrVerb == L"--help" || wstrVerb == L"-h" || wstrVerb == L"help") {
        PrintUsage(out);
        return Exit::OK;
    }
    if (wstrVerb == L"result")
        return ResultVerb(Arg(cmd, 2, L"DIR"), out);
    if (wstrVerb == L"fetch") {
        const std::wstring& wstrDir = Arg(cmd, 2, L"DIR");
        ExpectArgCount(cmd, 3);
        return FetchVerb(wstrDir, cmd.m_fnProgress, out);
    }
    if (wstrVerb == L"server") {
        const std::wstring& wstrDir = Arg(cmd, 2, L"DIR");
        ExpectArgCount(cmd, cmd.m_vecArgs.size() > 3 ? 4 : 3);
        return ServerVerb(wstrDir, cmd.m_vecArgs.size() > 3 ? cmd.m_vecArgs[3] : L"qzpkg-check", out);
    }
    if (wstrVerb == L"uninstall") {
        const std::wstring& wstrDir = Arg(cmd, 2, L"DIR");
        ExpectArgCount(cmd, 3);
        return UninstallVerb(wstrDir, out);
    }
    if (wstrVerb == L"removal") {
        ExpectArgCount(cmd, cmd.m_vecArgs.size() > 2 ? 3 : 2);
        return RemovalVerb(cmd.m_vecArgs.size() > 2 ? cmd.m_vecArgs[2] : QZRIWRP::SystemWorkPath(), out);
    }
    if (wstrVerb == L"state") {
        const std::wstring& wstrDir = Arg(cmd, 2, L"DIR");
        ExpectArgCount(cmd, 3);
        return StateVerb(wstrDir, out);
    }
    if (wstrVerb == L"hex")
        return RunHexVerb(cmd, out);
    if (wstrVerb == L"argv") {
        if (cmd.m_wstrRestAfterVerb.empty())
            throw UsageError(L"missing CMDLINE");
        return ArgvVerb(cmd.m_wstrRestAfterVerb, out);
    }
    if (wstrVerb == L"ss")
        return RunDumpVerb(cmd, out, &SsDumpVerb);
    if (wstrVerb == L"params")
        return RunDumpVerb(cmd, out, &ParamsDumpVerb);
    if (wstrVerb == L"ini") {
        const bool bUtf8 = cmd.m_vecArgs.size() > 2 && cmd.m_vecArgs[2] == L"--utf8";
        const size_t nFile = bUtf8 ? 3 : 2;
        const std::wstring& wstrFile = Arg(cmd, nFile, L"FILE");
        ExpectArgCount(cmd, nFile + 1);
        return IniVerb(wstrFile, bUtf8, out);
    }
    if (wstrVerb == L"qpd") {
        const std::wstring& wstrFile = Arg(cmd, 2, L"FILE");
        const std::wstring& wstrSection = Arg(cmd, 3, L"SECTION");
        const std::wstring& wstrKey = Arg(cmd, 4, L"KEY");
        ExpectArgCount(cmd, 5);
        return QpdVerb(wstrFile, wstrSection, wstrKey, out);
    }
    throw UsageError(L"unknown verb '" + wstrVerb + L"'");
}

}  // namespace

int RunTool(const ToolCommand& cmd, std::wostream& out, std::wostream& err)
{
    try {
        return RunVerb(cmd, out);
    } catch (const UsageError& e) {
        err << L"qzpkg: " << e.Why() << L"\n";
        PrintUsage(err);
        return Exit::USAGE;
    } catch (const QZSTD::QZError& e) {
        err << L"qzpkg: " << e.GetMessage() << L" (error " << e.GetCode() << L" of "
            << QZSTD::Utf8ToWide(e.GetModule()) << L")\n";
    } catch (const std::exception& e) {
        err << L"qzpkg: " << e.what() << L"\n";
    }
    return Exit::FAILED;
}

void PrintUsage(std::wostream& out)
{
    out << L"Usage: qzpkg VERB ARGUMENTS\n"
           L"  state DIR          the run parameters of DIR's $qzriwrp.ini as the agent reads them\n"
           L"  hex encode TEXT    TEXT in the $HEX_ form of ini values\n"
           L"  hex decode TEXT    a $HEX_ value decoded (other text is shown as it is)\n"
           L"  argv CMDLINE       the words the agent splits CMDLINE into, one per line\n"
           L"  result DIR         the result files the agent left in DIR, each value explained\n"
           L"  fetch DIR          DIR's download step as the agent runs it: fetch, verify, unpack, copy\n"
           L"  server DIR [TASK]  whether the administration server of DIR's settings answers this host\n"
           L"  uninstall DIR      how the agent would remove the product DIR's package names (runs nothing)\n"
           L"  removal [WORKDIR]  the incompatible-software removal's lists and saved reboot-agent command\n"
           L"  ss dump FILE       the products, versions, sections and values of a settings storage\n"
           L"  params dump FILE   the values of a binary Params file\n"
           L"  ini [--utf8] FILE  the sections and keys the agent reads from an ini file (ANSI by default)\n"
           L"  qpd FILE SECTION KEY  a package description's value and where it came from\n"
           L"  --help             this text\n"
           L"Exit codes: 0 done, 1 failed, 2 wrong usage.\n";
}

namespace {

// The agent's transfer with its progress shown as a percentage, at most once per percent.
class ProgressTransfer : public QZRI::Transfer
{
public:
    explicit ProgressTransfer(const std::function<void(const std::wstring&)>& fnProgress)
        : m_fnProgress(fnProgress)
    {
    }

    QZTRANSPORT::Downloaded Download(const std::string& strUrl, const std::wstring& wstrFile,
                                     const QZTRANSPORT::ProxySettings& proxy) override
    {
        QZTRANSPORT::TransferOptions options;
        int nShown = -1;
        options.m_fnProgress = [&](uint64_t nNow, uint64_t nTotal) {
            const int nPercent = nTotal ? static_cast<int>(nNow * 100 / nTotal) : 0;
            if (m_fnProgress && nTotal && nPercent != nShown) {
                nShown = nPercent;
                m_fnProgress(L"\rqzpkg: " + std::to_wstring(nPercent) + L"% of " + std::to_wstring(nTotal) +
                             L" bytes");
            }
        };
        QZTRANSPORT::Downloaded done = QZTRANSPORT::DownloadFile(strUrl, wstrFile, proxy, options);
        if (m_fnProgress && nShown >= 0)
            m_fnProgress(L"\n");
        return done;
    }

private:
    const std::function<void(const std::wstring&)>& m_fnProgress;
};

}  // namespace

namespace {

// What an administrator can do about a failed check, by the error.
std::wstring PlainWordsFor(const QZSTD::QZError& e)
{
    if (e.Is(QZTRANSPORT::MODULE, QZTRANSPORT::TRANSFER_FAILED))
        return L"the server cannot be reached, or its certificate is not the one the settings trust";
    if (e.Is(QZTRANSPORT::MODULE, QZTRANSPORT::ACCESS_DENIED))
        return L"the server refused this host's management agent (its id and name)";
    if (e.Is(QZSTD::Err::MODULE, QZSTD::Err::NOT_IMPLEMENTED))
        return L"the server is too old: it cannot decide on reboots (no ShouldForceReboot2)";
    if (e.Is(QZTRANSPORT::MODULE, QZTRANSPORT::HTTP_STATUS) ||
        e.Is(QZTRANSPORT::MODULE, QZTRANSPORT::BAD_JSON))
        return L"something answered, but not as an administration server does";
    if (e.Is(QZTRANSPORT::MODULE, QZTRANSPORT::NO_CONNECTION_SETTINGS))
        return L"neither ss_install.xml nor the management agent names a server";
    return L"the connection settings cannot be used";
}

}  // namespace

int ServerVerb(const std::wstring& wstrDir, const std::wstring& wstrTaskId, std::wostream& out)
{
    const std::wstring wstrPkg = QZRI::WithTrailingSeparator(wstrDir);
    const std::wstring wstrStorage = QZSTD::GetLocalSettingsStoragePath();
    std::unique_ptr<QZRI::ProxySource> pProxy = QZRI::CreateProxySource(wstrStorage);
    try {
        const ServCon::ServerConnection connection =
            ServCon::GetServerConnection(wstrPkg, wstrStorage, *pProxy);
        const QZTRANSPORT::RemoteEndpoint& endpoint = connection.m_endpoint;
        out << L"server:      " << QZSTD::Utf8ToWide(endpoint.m_strBase) << L" (from "
            << connection.m_wstrSource << L")\n"
            << L"trusted:     "
            << (endpoint.m_wstrServerCert.empty() ? L"the system's roots" : endpoint.m_wstrServerCert)
            << L"\n"
            << L"proxy:       " << (endpoint.m_proxy.m_bUse ? endpoint.m_proxy.m_wstrLocation : L"none")
            << L"\n";
        const std::wstring wstrHostId = ServCon::ReadHostId(wstrStorage);
        out << L"host id:     "
            << (wstrHostId.empty() ? L"(none: the management agent has not registered this host)"
                                   : wstrHostId)
            << L"\n";
        QZPXGPROXY::PxgSrvRiProxyImplT<QZRI::SrvRi> proxy(endpoint);
        const int nDecision = proxy.ShouldForceReboot2(wstrHostId, wstrTaskId);
        out << L"decision:    " << nDecision << L" for task '" << wstrTaskId << L"' ("
            << (nDecision == 1   ? L"reboot accepted"
                : nDecision == 2 ? L"request cancelled"
                                 : L"not decided yet")
            << L")\nok: the server answers this host\n";
        return Exit::OK;
    } catch (const QZSTD::QZError& e) {
        out << L"failed:      " << PlainWordsFor(e) << L"\n             " << e.GetMessage() << L" (error "
            << e.GetCode() << L" of " << QZSTD::Utf8ToWide(e.GetModule()) << L")\n";
    }
    return Exit::FAILED;
}

int UninstallVerb(const std::wstring& wstrDir, std::wostream& out)
{
    const std::wstring wstrPkg = QZRI::WithTrailingSeparator(wstrDir);
    std::unique_ptr<QZRI::AgentOs> pOs = QZRI::CreateSystemAgentOs();
    const QZRI::QpdChoice choice = QZRI::ChooseQpdFile(pOs->ListFiles(wstrPkg));
    if (choice.m_wstrFileName.empty())
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrPkg + L"*.qpd");
    QZSTD::CAutoPtr<QZRI::QpdFile> pQpd = QZRI::QpdFile::Create(wstrPkg + choice.m_wstrFileName);
    // The agent reads [Uninstall] from the package's ".qud" file.
    const std::wstring wstrIni = pQpd->GetQudPath();
    // The known products come from the file beside the agent in the package folder, else beside qzpkg.
    std::unique_ptr<QZRI::MsiProducts> pMsi = QZRI::CreateSystemMsiProducts();
    QZRI::UninstallDeps deps;
    deps.m_pRegistry = &QZRI::SystemRegistry();
    deps.m_pMsi = pMsi.get();
    deps.m_wstrKnownProductsFile = wstrPkg + QZRI::KNOWN_PRODUCTS_FILE;
    if (!pOs->FileExists(deps.m_wstrKnownProductsFile))
        deps.m_wstrKnownProductsFile =
            QZRI::DirectoryOf(pOs->GetModuleFilePath()) + QZRI::KNOWN_PRODUCTS_FILE;
    out << L"description: " << wstrIni << (pOs->FileExists(wstrIni) ? L"" : L" (missing)") << L"\n"
        << L"product:     " << QZSTD::GetProfileString(wstrIni, L"Uninstall", L"Product", L"") << L" "
        << QZSTD::GetProfileString(wstrIni, L"Uninstall", L"Version", L"") << L"\n"
        << L"known list:  " << deps.m_wstrKnownProductsFile << L"\n";
    const QZRI::UninstallPlan plan = QZRI::PlanUninstall(deps, wstrIni, wstrPkg, wstrPkg + L"setup.log", L"");
    if (!plan.m_bOk) {
        out << L"failed:      " << plan.m_wstrProblem << L"\n";
        return Exit::FAILED;
    }
    if (plan.m_nType == QZRI::KIND_UNRESOLVED) {
        out << L"not installed: nothing would be started" << (plan.m_wstrProblem.empty() ? L"" : L" (")
            << plan.m_wstrProblem << (plan.m_wstrProblem.empty() ? L"" : L")") << L"\n";
        return Exit::OK;
    }
    out << L"kind:        " << QZRI::UninstallKindName(plan.m_nType) << L"\n"
        << L"product code: " << (plan.m_wstrProductCode.empty() ? L"(none)" : plan.m_wstrProductCode)
        << L"\n";
    if (plan.m_bByProductCode)
        out << L"removal:     Windows Installer in the agent's process, by the product code\n";
    else
        out << L"command:     " << plan.m_wstrCommandLine << L"\n";
    if (plan.m_bUninstallString3)
        out << L"exit code:   judged by the code lists of '" << plan.m_wstrUninstallString3Qpd << L"'\n";
    return Exit::OK;
}

int RemovalVerb(const std::wstring& wstrWorkDir, std::wostream& out)
{
    const std::wstring wstrWork = QZRI::WithTrailingSeparator(wstrWorkDir);
    std::error_code ec;
    if (!fs::is_directory(QZSTD::FsPath(wstrWork), ec))
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrWork);
    const QZRIWRP::WorkFolderState state = QZRIWRP::ReadWorkFolderState(wstrWork);
    out << L"work folder: " << wstrWork << L"\n";
    const std::pair<const wchar_t*, const std::vector<std::wstring>*> lists[] = {
        {L"Installed softwares", &state.m_vecInstalled},
        {L"Removed softwares", &state.m_vecRemoved},
        {L"Remove failed softwares", &state.m_vecFailed},
        {L"Shutdown softwares", &state.m_vecShutdown},
    };
    for (const auto& [szList, pvec] : lists) {
        out << szList << L":";
        for (const std::wstring& wstrName : *pvec)
            out << L"\n  " << wstrName;
        out << (pvec->empty() ? L" (none)\n" : L"\n");
    }
    out << L"reboot agent: "
        << (state.m_wstrRebootAgentCmdLine.empty() ? L"(no saved command line)"
                                                   : QZRI::MaskPasswords(state.m_wstrRebootAgentCmdLine))
        << L"\n";
    return Exit::OK;
}

int FetchVerb(const std::wstring& wstrDir, const std::function<void(const std::wstring&)>& fnProgress,
              std::wostream& out)
{
    std::error_code ec;
    if (!fs::is_directory(fs::path(wstrDir), ec))
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrDir);
    std::unique_ptr<QZRI::AgentOs> pOs = QZRI::CreateSystemAgentOs();
    ProgressTransfer transfer(fnProgress);
    std::unique_ptr<QZRI::ProxySource> pProxy = QZRI::CreateProxySource(QZSTD::GetLocalSettingsStoragePath());
    QZRI::AgentServices services;
    services.m_pOs = pOs.get();
    services.m_pTransfer = &transfer;
    services.m_pProxy = pProxy.get();
    QZRI::RiWrpData data;
    data.m_wstrDirPath = QZRI::WithTrailingSeparator(wstrDir);
    QZRI::DownloadFailure failure;
    if (QZRI::CheckAndDownloadExecutableIfNeeded(data, &failure, services) != QZRI::EResult::SUCCESS) {
        out << L"failed:          " << failure.m_msg.m_szId << L" \"" << failure.m_msg.m_szText << L"\" ("
            << QZRI::DescribeResultCode(failure.m_nCode) << L")\n";
        return Exit::FAILED;
    }
    const std::wstring wstrConfig = data.m_wstrDirPath + QZRI::PACKAGE_SOURCE_CONFIG;
    out << L"done:            should_download="
        << QZSTD::GetProfileString(wstrConfig, L"qzpkgsrc", L"should_download", L"(no qzriwrap.cfg)")
        << L" in " << wstrConfig << L"\n";
    return Exit::OK;
}

int StateVerb(const std::wstring& wstrDir, std::wostream& out)
{
    std::error_code ec;
    if (!fs::is_directory(fs::path(wstrDir), ec))
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrDir);
    QZRI::RiWrpData data;
    data.m_wstrDirPath = QZRI::WithTrailingSeparator(wstrDir);
    data.GetServiceRunParams();
    const std::wstring wstrFile = data.RunParamsFilePath();
    out << L"file:          " << wstrFile << L"\n";
    if (!fs::exists(fs::path(wstrFile), ec))
        out << L"               (missing: the agent takes this as a fresh start)\n";
    out << L"action:        " << QZRI::ActionName(data.m_eAct) << L" (" << static_cast<int>(data.m_eAct)
        << L")\n"
        << L"start_counter: " << data.m_nStartCounter << L"\n"
        << L"cmdline:       " << data.m_wstrSavedCmdLine << L"\n";
    return Exit::OK;
}

int HexEncodeVerb(const std::wstring& wstrText, std::wostream& out)
{
    out << QZRI::EncodeHexString(wstrText) << L"\n";
    return Exit::OK;
}

int HexDecodeVerb(const std::wstring& wstrText, std::wostream& out)
{
    out << QZRI::DecodeHexString(wstrText) << L"\n";
    return Exit::OK;
}

int ArgvVerb(const std::wstring& wstrCmdLine, std::wostream& out)
{
    for (const std::wstring& wstrWord : QZSTD::SplitCommandLine(wstrCmdLine))
        out << wstrWord << L"\n";
    return Exit::OK;
}

namespace {

std::wstring ValueText(QZPAR::Value* pValue)
{
    switch (pValue->GetType()) {
        case QZPAR::Value::STRING_T:
            return L"'" + QZPAR::GetStringValue(pValue) + L"'";
        case QZPAR::Value::INT_T:
            return std::to_wstring(QZPAR::GetIntValue(pValue));
        case QZPAR::Value::BOOL_T:
            return QZPAR::GetBoolValue(pValue) ? L"true" : L"false";
        default:
            return L"(type " + std::to_wstring(static_cast<int>(pValue->GetType())) + L")";
    }
}

// The task entries of a subscription section, one line per task id.
void PrintTasks(QZPAR::Params* pSection, std::wostream& out)
{
    QZSTD::CAutoPtr<QZPAR::Value> pTasks = QZPAR::FindValue(pSection, L"TASK_ID");
    if (!pTasks || pTasks->GetType() != QZPAR::Value::PARAMS_T)
        return;
    QZSTD::CAutoPtr<QZPAR::Params> pIds = QZPAR::GetParamsValue(pTasks.Get());
    std::vector<std::wstring> vecIds;
    pIds->GetNames(vecIds);
    out << L"            tasks:\n";
    for (const std::wstring& wstrId : vecIds) {
        out << L"              " << wstrId << L":";
        for (const wchar_t* szEntry :
             {L"TASK_ID_RSLT_CODE", L"TASK_ID_ERR_CLASS", L"TASK_ID_RSLT_DESCR", L"TASK_ID_DEL_ON_RESTART"}) {
            QZSTD::CAutoPtr<QZPAR::Value> pEntry = QZPAR::FindValue(pSection, szEntry);
            if (!pEntry || pEntry->GetType() != QZPAR::Value::PARAMS_T)
                continue;
            QZSTD::CAutoPtr<QZPAR::Value> pValue =
                QZPAR::FindValue(QZPAR::GetParamsValue(pEntry.Get()), wstrId.c_str());
            if (pValue)
                out << L" " << (szEntry + 8) << L"=" << ValueText(pValue.Get());
        }
        out << L"\n";
    }
}

const wchar_t* ErrorClassText(int32_t nClass)
{
    switch (nClass) {
        case 0:
            return L"no restart";
        case 32:
            return L"restart, then run the setup again";
        case 33:
            return L"restart, then check the result";
        default:
            return L"an error class of the package";
    }
}

// One key of a result file with its explanation; "absent" when it is not there.
void PrintResultKey(const QZRI::IniFileParser& ini, const wchar_t* szKey, std::wostream& out)
{
    std::wstring_view wsvValue;
    out << L"  " << szKey << L": ";
    if (!ini.FindValue(QZRI::RESPONSE_SECTION, szKey, wsvValue)) {
        out << L"absent\n";
        return;
    }
    const std::wstring wstrValue(wsvValue);
    const bool bNumber =
        !wstrValue.empty() && wstrValue.find_first_not_of(L"-0123456789") == std::wstring::npos;
    const std::wstring wstrKey = szKey;
    if (wstrKey == L"RebootZombieFile" || wstrKey == L"ResultTime") {
        out << wstrValue << L"\n";
        return;
    }
    if (!bNumber) {
        out << L"'" << wstrValue << L"' is not a number\n";
        return;
    }
    const int32_t n = static_cast<int32_t>(std::stoll(wstrValue));
    if (wstrKey == L"ResultCode")
        out << QZRI::DescribeResultCode(n) << L"\n";
    else if (wstrKey == L"ErrorClass")
        out << n << L" (" << ErrorClassText(n) << L")\n";
    else if (wstrKey == L"ProcessResultCode")
        out << n
            << (n == 0 ? L" (the setup ran and its result is known)\n" : L" (the setup's process failed)\n");
    else
        out << n << L"\n";
}

void PrintResponseFile(const std::wstring& wstrPath, const wchar_t* szName,
                       std::initializer_list<const wchar_t*> keys, std::wostream& out)
{
    std::error_code ec;
    if (!fs::is_regular_file(fs::path(wstrPath), ec)) {
        out << szName << L": absent\n";
        return;
    }
    out << szName << L":\n";
    QZSTD::CAutoPtr<QZRI::IniFileParser> pIni = QZRI::IniFileParser::Create(wstrPath);
    for (const wchar_t* szKey : keys)
        PrintResultKey(*pIni, szKey, out);
}

void PrintDescriptionFile(const std::wstring& wstrPath, const wchar_t* szName, bool bUtf16,
                          std::wostream& out)
{
    std::ifstream in(fs::path(wstrPath), std::ios::binary);
    if (!in) {
        out << szName << L": absent\n";
        return;
    }
    const std::string strBytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::wstring wstrText;
    if (!bUtf16) {
        wstrText = QZRI::AnsiToWide(strBytes);
    } else if (strBytes.size() % 2 != 0 || strBytes.rfind("\xFF\xFE", 0) != 0) {
        out << szName << L": not UTF-16 text with a byte-order mark (" << strBytes.size() << L" bytes)\n";
        return;
    } else {
        wstrText = QZSTD::Utf16LeBytesToWide(strBytes);
    }
    out << szName << L": " << wstrText << L"\n";
}

}  // namespace

int ResultVerb(const std::wstring& wstrDir, std::wostream& out)
{
    std::error_code ec;
    if (!fs::is_directory(fs::path(wstrDir), ec))
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrDir);
    const std::wstring wstrFolder = QZRI::WithTrailingSeparator(wstrDir);
    out << L"result files in " << wstrFolder << L"\n";
    PrintResponseFile(
        wstrFolder + QZRI::SETUP_LOG_FILE, QZRI::SETUP_LOG_FILE,
        {L"ProcessResultCode", L"ResultCode", L"ErrorClass", L"ScriptResultCode", L"RebootZombieFile"}, out);
    PrintDescriptionFile(wstrFolder + QZRI::DESCR_FILE, QZRI::DESCR_FILE, false, out);
    PrintDescriptionFile(wstrFolder + QZRI::UNICODE_DESCR_FILE, QZRI::UNICODE_DESCR_FILE, true, out);
    PrintResponseFile(wstrFolder + QZRI::USER_ACTION_FILE, QZRI::USER_ACTION_FILE,
                      {L"ResultCode", L"ResultTime"}, out);
    return Exit::OK;
}

int SsDumpVerb(const std::wstring& wstrFile, std::wostream& out)
{
    RequireFile(wstrFile);
    QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage = QZSTD::SettingsStorage::OpenReadOnly(wstrFile);
    out << L"settings storage " << wstrFile << L"\n";
    for (const std::wstring& wstrProduct : pStorage->EnumProducts()) {
        out << L"product " << wstrProduct << L"\n";
        for (const std::wstring& wstrVersion : pStorage->EnumVersions(wstrProduct)) {
            out << L"    version " << wstrVersion << L"\n";
            for (const std::wstring& wstrSection : pStorage->EnumSections(wstrProduct, wstrVersion)) {
                out << L"        section " << wstrSection << L"\n";
                QZSTD::CAutoPtr<QZPAR::Params> pSection =
                    pStorage->ReadSection(wstrProduct, wstrVersion, wstrSection);
                out << QZPAR::DumpParams(pSection, 3);
                PrintTasks(pSection, out);
            }
        }
    }
    return Exit::OK;
}

int ParamsDumpVerb(const std::wstring& wstrFile, std::wostream& out)
{
    RequireFile(wstrFile);
    out << QZPAR::DumpParams(QZPAR::ReadParamsFile(wstrFile));
    return Exit::OK;
}

int IniVerb(const std::wstring& wstrFile, bool bUtf8, std::wostream& out)
{
    RequireFile(wstrFile);
    out << QZPAR::DumpParams(QZRI::IniFileParser::Create(wstrFile, nullptr, bUtf8)->GetParams().Get());
    return Exit::OK;
}

int QpdVerb(const std::wstring& wstrFile, const std::wstring& wstrSection, const std::wstring& wstrKey,
            std::wostream& out)
{
    RequireFile(wstrFile);
    QZSTD::CAutoPtr<QZRI::QpdFile> pQpd = QZRI::QpdFile::Create(wstrFile);
    QZRI::QpdValueOrigin eOrigin = QZRI::QpdValueOrigin::ABSENT;
    const std::wstring wstrValue = pQpd->GetString(wstrSection, wstrKey, QZRI::c_szAbsentSentinel, &eOrigin);
    if (eOrigin == QZRI::QpdValueOrigin::ABSENT) {
        out << L"absent\n";
        return Exit::OK;
    }
    const bool bCompanion = eOrigin == QZRI::QpdValueOrigin::COMPANION;
    out << L"value: " << wstrValue << L"\n"
        << L"from:  " << QZRI::QpdValueOriginName(eOrigin) << L" ("
        << (bCompanion ? pQpd->GetCompanionPath() : pQpd->GetPath()) << L")\n";
    return Exit::OK;
}

std::wstring RestOfCommandLine(const std::wstring& wstrCmdLine, size_t nWords)
{
    if (nWords == 0)
        return wstrCmdLine;
    size_t i = SkipProgramName(wstrCmdLine);
    for (size_t nWord = 1; nWord < nWords; ++nWord)
        i = SkipArgument(wstrCmdLine, SkipBlanks(wstrCmdLine, i));
    return wstrCmdLine.substr(SkipBlanks(wstrCmdLine, i));
}

}  // namespace QZPKG

// The verbs of qzpkg, called as functions with the tool's command line and string streams.
#include "tools/qzpkg/qzpkgverbs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "qzri/riwrap/riwrpdata.h"
#include "std/cmdline.h"
#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"
#include "std/ss/settingsstorage.h"
#include "std/strconv.h"
#include "tests/testutil/fsutil.h"

namespace {

using namespace QZPKG;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

struct ToolRun
{
    int nExit;
    std::wstring wstrOut;
    std::wstring wstrErr;
};

ToolRun RunWords(std::vector<std::wstring> vecArgs, std::wstring wstrRest = L"")
{
    vecArgs.insert(vecArgs.begin(), L"qzpkg");
    std::wostringstream out;
    std::wostringstream err;
    const int n = RunTool({vecArgs, wstrRest, nullptr}, out, err);
    return {n, out.str(), err.str()};
}

// The output of a run that must succeed.
std::wstring Out(std::vector<std::wstring> vecArgs, std::wstring wstrRest = L"")
{
    const ToolRun run = RunWords(std::move(vecArgs), std::move(wstrRest));
    EXPECT_EQ(run.nExit, Exit::OK) << QZSTD::WideToUtf8(run.wstrErr);
    return run.wstrOut;
}

TEST(QzpkgTest, WrongUsageIsExitTwoWithTheReasonOnErr)
{
    const std::pair<std::vector<std::wstring>, const wchar_t*> rows[] = {
        {{}, L"qzpkg: missing verb"},
        {{L"frobnicate"}, L"qzpkg: unknown verb 'frobnicate'"},
        {{L"state", L"a", L"b"}, L"qzpkg: unexpected argument 'b'"},
        {{L"hex", L"rot13", L"x"}, L"qzpkg: unknown hex operation 'rot13'"},
        {{L"ss", L"load", L"f"}, L"qzpkg: unknown operation 'load'"},
        {{L"argv"}, L"qzpkg: missing CMDLINE"},
        {{L"ini", L"--utf8"}, L"qzpkg: missing FILE"},
    };
    for (const auto& [vecArgs, szReason] : rows) {
        const ToolRun run = RunWords(vecArgs);
        EXPECT_EQ(run.nExit, Exit::USAGE) << QZSTD::WideToUtf8(szReason);
        EXPECT_THAT(run.wstrErr, StartsWith(szReason));
        EXPECT_EQ(run.wstrOut, L"");
    }
}

TEST(QzpkgTest, HexAndArgvShowTheIniFormAndTheWords)
{
    // A malformed value is DecodeHexString's refusal (qpdfile_test.cpp), reported as every error is.
    EXPECT_EQ(Out({L"hex", L"decode", L"$HEX_610020006200"}), L"a b\n");
    EXPECT_EQ(Out({L"argv"}, L"\"C:\\a b\\qzriwrap.exe\" TASK_ID=\"x y\" \"\" -s"),
              L"C:\\a b\\qzriwrap.exe\nTASK_ID=x y\n\n-s\n");
}

TEST(QzpkgTest, RestOfCommandLineSplitsIntoTheWordsThatFollow)
{
    for (const wchar_t* szLine :
         {L"qzpkg.exe argv \"C:\\a b\\x.exe\" K=1", L"\"C:\\Program Files\\qzpkg.exe\"   argv\t x y",
          L"qzpkg \"ar\"gv \"quoted \\\" verb\" rest", L"qzpkg \"a\"\"r gv\" tail \"",
          L"qzpkg a\\\\\"b c\" d e", L"qzpkg a\\\"b c d", L"qzpkg \"\" x", L" qzpkg argv x", L"qzpkg argv",
          L"qzpkg"}) {
        // Read back behind a program name of its own, the rest gives the words after the first two.
        std::vector<std::wstring> vecRest = QZSTD::SplitCommandLine(L"p " + RestOfCommandLine(szLine, 2));
        std::vector<std::wstring> vecAll = QZSTD::SplitCommandLine(szLine);
        vecRest.erase(vecRest.begin());
        vecAll.erase(vecAll.begin(), vecAll.begin() + std::min<size_t>(2, vecAll.size()));
        EXPECT_EQ(vecRest, vecAll) << QZSTD::WideToUtf8(szLine);
    }
    EXPECT_EQ(RestOfCommandLine(L"qzpkg.exe argv  \"a b\" c", 2), L"\"a b\" c");
    EXPECT_EQ(RestOfCommandLine(L"x y", 0), L"x y");
}

TEST(QzpkgTest, StateShowsTheRunParametersAsTheAgentReadsThem)
{
    QZTEST::TempFolder folder;
    EXPECT_THAT(Out({L"state", folder.Path()}),
                AllOf(HasSubstr(L"missing: the agent takes this as a fresh start"),
                      HasSubstr(L"action:        QZRI_ACTION_RUN (0)")));

    QZRI::RiWrpData data;
    data.m_wstrDirPath = folder.Path();
    data.m_nStartCounter = 4;
    data.m_wstrSavedCmdLine = L"setup.exe TASK_ID=T-17";
    ASSERT_TRUE(data.SetServiceRunParams(QZRI::QZRI_ACTION_RUN));
    ASSERT_TRUE(data.SetServiceRunParams(QZRI::QZRI_ACTION_CHECK_RESULT));
    EXPECT_EQ(Out({L"state", folder.Path()}), L"file:          " + folder.Path() +
                                                  L"$qzriwrp.ini\n"
                                                  L"action:        QZRI_ACTION_CHECK_RESULT (2)\n"
                                                  L"start_counter: 5\n"
                                                  L"cmdline:       setup.exe TASK_ID=T-17\n");
}

// removal shows the stat file's lists as the agent reads them, and the reboot agent's command masked.
TEST(QzpkgTest, RemovalShowsTheWorkFoldersListsAndTheSavedCommand)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(
        folder.Join(L"WorkState.txt"),
        "[Installed softwares]\r\nAlpha=a.ini\r\nBeta=b.ini\r\n[Shutdown softwares]\r\nBeta=b.ini\r\n");
    QZTEST::WriteFileBytes(folder.Join(L"RbtAgtCmdLineFile.txt"),
                           "[General]\r\nCommandLine=setup.exe PASSWORD=x1\r\n");
    EXPECT_EQ(Out({L"removal", folder.Path()}),
              L"work folder: " + folder.Path() +
                  L"\nInstalled softwares:\n  Alpha\n  Beta\nRemoved softwares: (none)\n"
                  L"Remove failed softwares: (none)\nShutdown softwares:\n  Beta\n"
                  L"reboot agent: setup.exe PASSWORD=<password of 2 characters>\n");
    EXPECT_EQ(RunWords({L"removal", folder.Join(L"none")}).nExit, Exit::FAILED);
}

// fetch runs the package's download step: nothing to do, or the agent's own refusal as the result.
TEST(QzpkgTest, FetchRunsTheDownloadStepAndSaysHowItEnded)
{
    QZTEST::TempFolder folder;
    EXPECT_THAT(Out({L"fetch", folder.Path()}), HasSubstr(L"should_download=(no qzriwrap.cfg)"));
    QZTEST::WriteFileBytes(folder.Join(L"qzriwrap.cfg"), "[qzpkgsrc]\r\nshould_download=1\r\n");
    QZTEST::WriteFileBytes(folder.Join(L"qzpkgsrc.ini"), "[source]\r\nurl=http://127.0.0.1:1/p.zip\r\n");
    const ToolRun run = RunWords({L"fetch", folder.Path()});
    EXPECT_EQ(run.nExit, Exit::FAILED);
    EXPECT_THAT(run.wstrOut, HasSubstr(L"failed:          QZRI_MSG_DATA_FILE_VERIFYING_ERROR"));
}

TEST(QzpkgTest, MissingOrMalformedFilesFailWithTheReasonOnErr)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(folder.Join(L"bad.xml"), "<not closed");
    const std::wstring wstrNone = folder.Join(L"none"), wstrBad = folder.Join(L"bad.xml");
    const std::wstring wstrMissing = L"(error 1205 of QZSTD)";
    // The words and what the error must name.
    const std::pair<std::vector<std::wstring>, std::vector<std::wstring>> rows[] = {
        {{L"state", wstrNone}, {wstrNone, wstrMissing}},
        {{L"params", L"dump", wstrNone}, {wstrNone, wstrMissing}},
        {{L"qpd", wstrNone, L"S", L"K"}, {wstrNone, wstrMissing}},
        {{L"ss", L"dump", wstrBad}, {wstrBad}},
    };
    for (const auto& [vecArgs, vecParts] : rows) {
        const ToolRun run = RunWords(vecArgs);
        EXPECT_EQ(run.nExit, Exit::FAILED);
        EXPECT_THAT(run.wstrErr, StartsWith(L"qzpkg: "));
        for (const std::wstring& wstrPart : vecParts)
            EXPECT_THAT(run.wstrErr, HasSubstr(wstrPart));
    }
}

TEST(QzpkgTest, SsAndParamsDumpShowTheStoredValues)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrSs = folder.Join(L"ss.xml"), wstrParams = folder.Join(L"p.bin");
    QZSTD::CAutoPtr<QZPAR::Params> pEntries = QZPAR::CreateParams();
    QZPAR::SetStringValue(pEntries, L"QZNAG_SRVID", L"srv-B");
    QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage = QZSTD::SettingsStorage::OpenOrCreate(wstrSs);
    pStorage->CreateSection(L"1103", L"1.0.0.0", L"global");
    pStorage->ReplaceEntries(L"1103", L"1.0.0.0", L"global", pEntries);
    QZPAR::SetIntValue(pEntries, L"count", 5);
    QZPAR::WriteParamsFile(wstrParams, pEntries);

    EXPECT_EQ(Out({L"ss", L"dump", wstrSs}), L"settings storage " + wstrSs +
                                                 L"\n"
                                                 L"product 1103\n"
                                                 L"    version 1.0.0.0\n"
                                                 L"        section global\n"
                                                 L"            QZNAG_SRVID = (STRING_T)\"srv-B\"\n");
    EXPECT_EQ(Out({L"params", L"dump", wstrParams}),
              L"QZNAG_SRVID = (STRING_T)\"srv-B\"\ncount = (INT_T)5\n");
}

TEST(QzpkgTest, IniPrintsTheParsedTreeAsTheTraceDumpsIt)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrFile = folder.Join(L"a.ini");
    QZTEST::WriteFileBytes(wstrFile, "[Setup]\r\n  Name = \" x \"\r\n[setup]\nOther=\xC3\xA9\n");
    EXPECT_THAT(Out({L"ini", wstrFile}), HasSubstr(L"Setup (PARAMS_T)\n    Name = (STRING_T)\" x \""));
    EXPECT_THAT(Out({L"ini", L"--utf8", wstrFile}), HasSubstr(L"Other = (STRING_T)\"\x00E9\""));
}

TEST(QzpkgTest, QpdTellsTheValueAndWhetherItCameFromTheCompanion)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrQpd = folder.Join(L"pkg.qpd");
    QZTEST::WriteFileBytes(wstrQpd, "[Product]\nName=ansi\nVersion=2.0\n");
    QZTEST::WriteFileBytes(folder.Join(L"pkg.qud"), "[Product]\nName=\xD0\x96\n");
    EXPECT_THAT(Out({L"qpd", wstrQpd, L"product", L"NAME"}),
                StartsWith(L"value: \x0416\nfrom:  companion ("));
    EXPECT_THAT(Out({L"qpd", wstrQpd, L"Product", L"Version"}), StartsWith(L"value: 2.0\nfrom:  qpd ("));
    EXPECT_EQ(Out({L"qpd", wstrQpd, L"Product", L"Missing"}), L"absent\n");
}

// The result files explained: the agent's own code by name, a value that is no number, a description
// file in the wrong encoding, and the e2s entries grouped by task id.
TEST(QzpkgTest, ResultExplainsTheResultFilesAndSsDumpGroupsTheTasks)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(folder.Join(L"setup.log"),
                           "[ResponseResult]\r\nProcessResultCode=0\r\nResultCode=536871110\r\n"
                           "ErrorClass=33\r\nScriptResultCode=abc\r\n");
    QZTEST::WriteFileBytes(folder.Join(L"ovxsetup.rep"), "Fertig \x80");
    QZTEST::WriteFileBytes(folder.Join(L"setuplog.txt"), "not utf-16");
    const std::wstring wstrResult = Out({L"result", folder.Path()});
    for (const wchar_t* szLine :
         {L"  ProcessResultCode: 0 (the setup ran and its result is known)\n",
          L"  ResultCode: QZRI_RSLT_TIMEOUT (536871110, 0x200000C6, the agent's own)\n",
          L"  ErrorClass: 33 (restart, then check the result)\n",
          L"  ScriptResultCode: 'abc' is not a number\n", L"  RebootZombieFile: absent\n",
          L"ovxsetup.rep: Fertig \u20AC\n",
          L"setuplog.txt: not UTF-16 text with a byte-order mark (10 bytes)\n", L"askusr.log: absent\n"})
        EXPECT_THAT(wstrResult, HasSubstr(szLine));
    EXPECT_EQ(RunWords({L"result", folder.Join(L"none")}).nExit, Exit::FAILED);

    const std::wstring wstrSs = folder.Join(L"e2s_subscription.xml");
    QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage = QZSTD::SettingsStorage::OpenOrCreate(wstrSs);
    pStorage->CreateSection(L".core", L".independent", L"SubscriptionData");
    QZSTD::CAutoPtr<QZPAR::Params> pEntries = QZPAR::CreateParams();
    for (const wchar_t* szEntry : {L"TASK_ID", L"TASK_ID_RSLT_CODE"}) {
        QZSTD::CAutoPtr<QZPAR::Params> pByTask = QZPAR::CreateParams();
        QZPAR::SetIntValue(pByTask, L"T1", 7);
        QZPAR::SetIntValue(pByTask, L"T2", 8);
        QZPAR::SetParamsValue(pEntries, szEntry, pByTask);
    }
    pStorage->ReplaceEntries(L".core", L".independent", L"SubscriptionData", pEntries);
    EXPECT_THAT(Out({L"ss", L"dump", wstrSs}),
                HasSubstr(L"tasks:\n              T1: RSLT_CODE=7\n              T2: RSLT_CODE=8\n"));
}

}  // namespace

// The verbs of qzpkg, called as functions with the tool's command line and string streams.
#include "tools/qzpkg/qzpkgverbs.h"

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
    const int n = RunTool({vecArgs, wstrRest}, out, err);
    return {n, out.str(), err.str()};
}

TEST(QzpkgTest, HelpListsEveryVerb)
{
    const ToolRun run = RunWords({L"--help"});
    EXPECT_EQ(run.nExit, Exit::OK);
    for (const wchar_t* szVerb : {L"state DIR", L"hex encode TEXT", L"hex decode TEXT", L"argv CMDLINE",
                                  L"ss dump FILE", L"params dump FILE"})
        EXPECT_NE(run.wstrOut.find(szVerb), std::wstring::npos) << QZSTD::WideToUtf8(szVerb);
    EXPECT_EQ(run.wstrErr, L"");
}

TEST(QzpkgTest, WrongUsageIsExitTwoWithTheReasonOnErr)
{
    struct Row
    {
        std::vector<std::wstring> vecArgs;
        const wchar_t* szReason;
    };
    const Row rows[] = {
        {{}, L"qzpkg: missing verb"},
        {{L"frobnicate"}, L"qzpkg: unknown verb 'frobnicate'"},
        {{L"state"}, L"qzpkg: missing DIR"},
        {{L"state", L"a", L"b"}, L"qzpkg: unexpected argument 'b'"},
        {{L"hex", L"rot13", L"x"}, L"qzpkg: unknown hex operation 'rot13'"},
        {{L"hex", L"encode"}, L"qzpkg: missing TEXT"},
        {{L"ss", L"load", L"f"}, L"qzpkg: unknown operation 'load'"},
        {{L"argv"}, L"qzpkg: missing CMDLINE"},
    };
    for (const Row& row : rows) {
        const ToolRun run = RunWords(row.vecArgs);
        EXPECT_EQ(run.nExit, Exit::USAGE) << QZSTD::WideToUtf8(row.szReason);
        EXPECT_EQ(run.wstrErr.rfind(row.szReason, 0), 0u) << QZSTD::WideToUtf8(run.wstrErr);
        EXPECT_EQ(run.wstrOut, L"");
    }
}

TEST(QzpkgTest, HexEncodesAndDecodesTheIniForm)
{
    EXPECT_EQ(RunWords({L"hex", L"encode", L"a b"}).wstrOut, L"$HEX_610020006200\n");
    EXPECT_EQ(RunWords({L"hex", L"decode", L"$HEX_610020006200"}).wstrOut, L"a b\n");
    EXPECT_EQ(RunWords({L"hex", L"decode", L"plain"}).wstrOut, L"plain\n");
    const ToolRun bad = RunWords({L"hex", L"decode", L"$HEX_61"});
    EXPECT_EQ(bad.nExit, Exit::FAILED);
    EXPECT_EQ(bad.wstrErr.rfind(L"qzpkg: Bad parameter \"value\"", 0), 0u) << QZSTD::WideToUtf8(bad.wstrErr);
}

TEST(QzpkgTest, ArgvShowsTheWordsOnePerLine)
{
    const ToolRun run = RunWords({L"argv"}, L"\"C:\\a b\\qzriwrap.exe\" TASK_ID=\"x y\" \"\" -s");
    EXPECT_EQ(run.nExit, Exit::OK);
    EXPECT_EQ(run.wstrOut, L"C:\\a b\\qzriwrap.exe\nTASK_ID=x y\n\n-s\n");
}

TEST(QzpkgTest, RestOfCommandLineSplitsIntoTheWordsThatFollow)
{
    const std::wstring lines[] = {
        L"qzpkg.exe argv \"C:\\a b\\x.exe\" K=1",
        L"\"C:\\Program Files\\qzpkg.exe\"   argv\t x y",
        L"qzpkg \"ar\"gv \"quoted \\\" verb\" rest",
        L"qzpkg \"a\"\"r gv\" tail \"",
        L"qzpkg a\\\\\"b c\" d e",
        L"qzpkg a\\\"b c d",
        L"qzpkg \"\" x",
        L" qzpkg argv x",
        L"qzpkg argv",
        L"qzpkg",
    };
    for (const std::wstring& wstrLine : lines) {
        const std::vector<std::wstring> vecAll = QZSTD::SplitCommandLine(wstrLine);
        const std::wstring wstrRest = RestOfCommandLine(wstrLine, 2);
        std::vector<std::wstring> vecRest;
        if (!wstrRest.empty()) {
            vecRest = QZSTD::SplitCommandLine(L"p " + wstrRest);
            vecRest.erase(vecRest.begin());
        }
        const std::vector<std::wstring> vecExpected(vecAll.begin() + std::min<size_t>(2, vecAll.size()),
                                                    vecAll.end());
        EXPECT_EQ(vecRest, vecExpected) << QZSTD::WideToUtf8(wstrLine);
    }
    EXPECT_EQ(RestOfCommandLine(L"qzpkg.exe argv  \"a b\" c", 2), L"\"a b\" c");
    EXPECT_EQ(RestOfCommandLine(L"x y", 0), L"x y");
}

TEST(QzpkgTest, StateShowsTheRunParametersAsTheAgentReadsThem)
{
    QZTEST::TempFolder folder;
    QZRI::RiWrpData data;
    data.m_wstrDirPath = folder.Path();
    data.m_nStartCounter = 4;
    data.m_wstrSavedCmdLine = L"setup.exe TASK_ID=T-17";
    ASSERT_TRUE(data.SetServiceRunParams(QZRI::QZRI_ACTION_RUN));
    ASSERT_TRUE(data.SetServiceRunParams(QZRI::QZRI_ACTION_CHECK_RESULT));

    const ToolRun run = RunWords({L"state", folder.Path()});
    EXPECT_EQ(run.nExit, Exit::OK) << QZSTD::WideToUtf8(run.wstrErr);
    EXPECT_EQ(run.wstrOut, L"file:          " + folder.Path() +
                               L"$qzriwrp.ini\n"
                               L"action:        QZRI_ACTION_CHECK_RESULT (2)\n"
                               L"start_counter: 5\n"
                               L"cmdline:       setup.exe TASK_ID=T-17\n");
}

TEST(QzpkgTest, StateOfAFolderWithoutRunParametersIsAFreshStart)
{
    QZTEST::TempFolder folder;
    const ToolRun run = RunWords({L"state", folder.Path()});
    EXPECT_EQ(run.nExit, Exit::OK);
    EXPECT_NE(run.wstrOut.find(L"missing: the agent takes this as a fresh start"), std::wstring::npos);
    EXPECT_NE(run.wstrOut.find(L"action:        QZRI_ACTION_RUN (0)"), std::wstring::npos);
}

TEST(QzpkgTest, MissingFolderOrFileFails)
{
    QZTEST::TempFolder folder;
    for (const std::vector<std::wstring>& vecArgs :
         {std::vector<std::wstring>{L"state", folder.Path() + L"none"},
          {L"ss", L"dump", folder.Path() + L"none.xml"},
          {L"params", L"dump", folder.Path() + L"none.bin"}}) {
        const ToolRun run = RunWords(vecArgs);
        EXPECT_EQ(run.nExit, Exit::FAILED);
        EXPECT_EQ(run.wstrErr.rfind(L"qzpkg: ", 0), 0u);
        EXPECT_NE(run.wstrErr.find(vecArgs.back()), std::wstring::npos) << QZSTD::WideToUtf8(run.wstrErr);
        EXPECT_NE(run.wstrErr.find(L"(error 1205 of QZSTD)"), std::wstring::npos)
            << QZSTD::WideToUtf8(run.wstrErr);
    }
}

TEST(QzpkgTest, SsDumpShowsEveryLevelWithTheValues)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrFile = folder.Path() + L"ss.xml";
    {
        QZSTD::CAutoPtr<QZSTD::SettingsStorage> pStorage = QZSTD::SettingsStorage::OpenOrCreate(wstrFile);
        pStorage->CreateSection(L"1103", L"1.0.0.0", L"global");
        QZSTD::CAutoPtr<QZPAR::Params> pEntries = QZPAR::CreateParams();
        QZPAR::SetStringValue(pEntries, L"QZNAG_SRVID", L"srv-B");
        pStorage->ReplaceEntries(L"1103", L"1.0.0.0", L"global", pEntries);
    }
    const ToolRun run = RunWords({L"ss", L"dump", wstrFile});
    EXPECT_EQ(run.nExit, Exit::OK) << QZSTD::WideToUtf8(run.wstrErr);
    EXPECT_EQ(run.wstrOut, L"settings storage " + wstrFile +
                               L"\n"
                               L"product 1103\n"
                               L"    version 1.0.0.0\n"
                               L"        section global\n"
                               L"            QZNAG_SRVID = (STRING_T)\"srv-B\"\n");
}

TEST(QzpkgTest, MalformedStorageFails)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(folder.Path() + L"bad.xml", "<not closed");
    const ToolRun run = RunWords({L"ss", L"dump", folder.Path() + L"bad.xml"});
    EXPECT_EQ(run.nExit, Exit::FAILED);
    EXPECT_EQ(run.wstrErr.rfind(L"qzpkg: ", 0), 0u);
}

TEST(QzpkgTest, ParamsDumpShowsTheTree)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrFile = folder.Path() + L"p.bin";
    QZSTD::CAutoPtr<QZPAR::Params> pParams = QZPAR::CreateParams();
    QZPAR::SetIntValue(pParams, L"count", 5);
    QZPAR::SetStringValue(pParams, L"title", L"Setup finished");
    QZPAR::WriteParamsFile(wstrFile, pParams);
    const ToolRun run = RunWords({L"params", L"dump", wstrFile});
    EXPECT_EQ(run.nExit, Exit::OK) << QZSTD::WideToUtf8(run.wstrErr);
    EXPECT_EQ(run.wstrOut, L"count = (INT_T)5\ntitle = (STRING_T)\"Setup finished\"\n");

    QZTEST::WriteFileBytes(folder.Path() + L"junk.bin", "QZPB junk");
    EXPECT_EQ(RunWords({L"params", L"dump", folder.Path() + L"junk.bin"}).nExit, Exit::FAILED);
}

}  // namespace

namespace {

TEST(QzpkgTest, IniPrintsTheParsedTreeAsTheTraceDumpsIt)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrFile = folder.Join(L"a.ini");
    QZTEST::WriteFileBytes(wstrFile, "; comment\n[Setup]\r\n  Name = \" x \"\r\n[setup]\nOther=\xC3\xA9\n");
    ToolRun run = RunWords({L"ini", wstrFile});
    EXPECT_EQ(run.nExit, Exit::OK) << run.wstrErr;
    EXPECT_NE(run.wstrOut.find(L"Setup (PARAMS_T)\n"), std::wstring::npos) << QZSTD::WideToUtf8(run.wstrOut);
    EXPECT_NE(run.wstrOut.find(L"Name = (STRING_T)\" x \""), std::wstring::npos)
        << QZSTD::WideToUtf8(run.wstrOut);
    EXPECT_EQ(run.wstrOut.find(L"comment"), std::wstring::npos);
    run = RunWords({L"ini", L"--utf8", wstrFile});
    EXPECT_EQ(run.nExit, Exit::OK) << run.wstrErr;
    EXPECT_NE(run.wstrOut.find(L"Other = (STRING_T)\"\x00E9\""), std::wstring::npos)
        << QZSTD::WideToUtf8(run.wstrOut);
    EXPECT_EQ(RunWords({L"ini", folder.Join(L"none.ini")}).nExit, Exit::FAILED);
    EXPECT_EQ(RunWords({L"ini"}).nExit, Exit::USAGE);
    EXPECT_EQ(RunWords({L"ini", L"--utf8"}).nExit, Exit::USAGE);
    EXPECT_EQ(RunWords({L"ini", wstrFile, L"extra"}).nExit, Exit::USAGE);
}

TEST(QzpkgTest, QpdTellsTheValueAndWhetherItCameFromTheCompanion)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrQpd = folder.Join(L"pkg.qpd");
    QZTEST::WriteFileBytes(wstrQpd, "[Product]\nName=ansi\nVersion=2.0\n");
    QZTEST::WriteFileBytes(folder.Join(L"pkg.qud"), "[Product]\nName=\xD0\x96\n");
    ToolRun run = RunWords({L"qpd", wstrQpd, L"product", L"NAME"});
    EXPECT_EQ(run.nExit, Exit::OK) << run.wstrErr;
    EXPECT_EQ(run.wstrOut.substr(0, run.wstrOut.find(L'\n')), L"value: \x0416");
    EXPECT_NE(run.wstrOut.find(L"from:  companion ("), std::wstring::npos) << QZSTD::WideToUtf8(run.wstrOut);
    run = RunWords({L"qpd", wstrQpd, L"Product", L"Version"});
    EXPECT_EQ(run.wstrOut.substr(0, run.wstrOut.find(L'\n')), L"value: 2.0");
    EXPECT_NE(run.wstrOut.find(L"from:  qpd ("), std::wstring::npos) << QZSTD::WideToUtf8(run.wstrOut);
    run = RunWords({L"qpd", wstrQpd, L"Product", L"Missing"});
    EXPECT_EQ(run.nExit, Exit::OK);
    EXPECT_EQ(run.wstrOut, L"absent\n");
    EXPECT_EQ(RunWords({L"qpd", folder.Join(L"none.qpd"), L"S", L"K"}).nExit, Exit::FAILED);
    EXPECT_EQ(RunWords({L"qpd", wstrQpd, L"S"}).nExit, Exit::USAGE);
}

TEST(QzpkgTest, HelpListsTheIniAndQpdVerbs)
{
    const ToolRun run = RunWords({L"--help"});
    EXPECT_NE(run.wstrOut.find(L"ini [--utf8] FILE"), std::wstring::npos);
    EXPECT_NE(run.wstrOut.find(L"qpd FILE SECTION KEY"), std::wstring::npos);
}

}  // namespace

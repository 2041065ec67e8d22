// The signature check's portable decisions: which files the folder walk checks, that one failure does
// not end the walk, the signer-name match, and no pretended pass where signatures cannot be checked.
#include "common/check_signature.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/testutil/fsutil.h"

namespace {

using namespace QZSIGNATURES;

// Files the walk must check, and files it must leave alone.
const std::set<std::wstring> c_setChecked = {
    L"a.exe", L"B.EXE", L"nested/c.exe", L"nested/deep/d.exe", L"x.exe.config", L"nested/deep/QZCFGINST.EXE"};
const wchar_t* const c_unchecked[] = {L"setup.Exe", L"qzcfginst.exe", L"nested/qzcfginst.exe", L"readme.txt",
                                      L"exe"};

// Walks a package folder of both kinds of files whose check fails the files in setFailing; notes the files
// checked.
bool Walk(const std::set<std::wstring>& setFailing, std::set<std::wstring>& setChecked)
{
    QZTEST::TempFolder folder;
    folder.MakeSubFolder(L"nested/deep");
    folder.MakeSubFolder(L"folder.exe");  // a folder is never checked, whatever its name
    for (const std::wstring& wstrFile : c_setChecked)
        QZTEST::WriteFileBytes(folder.Join(wstrFile), "MZ");
    for (const wchar_t* wszFile : c_unchecked)
        QZTEST::WriteFileBytes(folder.Join(wszFile), "MZ");
    return CheckQZSignaturesInFolder(folder.Path(), [&](const std::wstring& wstrPath) {
        std::wstring wstrRel = wstrPath.substr(folder.Path().size());
        std::replace(wstrRel.begin(), wstrRel.end(), L'\\', L'/');
        setChecked.insert(wstrRel);
        return setFailing.count(wstrRel) == 0;
    });
}

TEST(CheckSignatureWalk, ChecksEveryExeNamedFileAndGoesOnAfterAFailure)
{
    // (file whose check fails, folder passes)
    for (const auto& [wszFailing, bPass] :
         {std::pair{L"", true}, {L"a.exe", false}, {L"nested/deep/d.exe", false}}) {
        std::set<std::wstring> setChecked;
        EXPECT_EQ(bPass, Walk({wszFailing}, setChecked)) << wszFailing;
        EXPECT_EQ(c_setChecked, setChecked) << wszFailing;
    }
}

TEST(CheckSignatureWalk, MissingFolderOrFileFailsWithoutChecking)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(folder.Join(L"file.exe"), "MZ");
    const FileCheck fnUnexpected = [](const std::wstring& wstr) { return ADD_FAILURE() << wstr, true; };
    EXPECT_FALSE(CheckQZSignaturesInFolder(folder.Join(L"missing"), fnUnexpected));
    EXPECT_FALSE(CheckQZSignaturesInFolder(folder.Join(L"file.exe"), fnUnexpected));
}

TEST(CheckSignatureName, OnlyTheExactPublisherNameMatches)
{
    EXPECT_TRUE(IsQZSignerName(L"Orvane Lab"));
    for (const wchar_t* wszName : {L"orvane lab", L"ORVANE LAB", L"Orvane Lab ", L" Orvane Lab",
                                   L"Orvane  Lab", L"Orvane Lab Ltd", L"Other Publisher", L""})
        EXPECT_FALSE(IsQZSignerName(wszName)) << wszName;
}

#ifndef _WIN32
// No Authenticode here: even a file that exists never passes, nor a folder holding one.
TEST(CheckSignaturePosix, NeverPasses)
{
    QZTEST::TempFolder folder;
    QZTEST::WriteFileBytes(folder.Join(L"setup.exe"), "MZ");
    EXPECT_FALSE(CheckQZSignatures(folder.Join(L"setup.exe")));
    EXPECT_FALSE(CheckQZSignaturesInFolder(folder.Path()));
}
#endif

}  // namespace

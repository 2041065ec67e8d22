// The settings storage against real files: every value type through the file and back, the
// section operations and their error codes, malformed files, failed writes, several processes and
// threads changing one storage at once (none may lose another's update) and the local path.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <optional>
#include <tuple>

#include <thread>

#ifdef _WIN32
#include <windows.h>
// The Windows headers turn GetMessage into GetMessageW, which would rename QZError::GetMessage here.
#undef GetMessage
#else
#include <unistd.h>
#endif

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/ss/atomicfile.h"
#include "std/ss/settingsstorage.h"
#include "std/ss/sserrors.h"
#include "std/ss/ssxml.h"
#include "std/strconv.h"
#include "tests/std/par/testutil.h"
#include "tests/std/process/testchild.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using QZPAR::Testing::EveryTypeTree;
using QZPAR::Testing::NestedLevels;
using QZSTD::CAutoPtr;
using QZSTD::QZError;
using QZSTD::SettingsStorage;
using QZTEST::ErrorCodeOf;
using QZTEST::ErrorOf;
using namespace QZPAR;
using namespace QZSTD::SsErr;

const std::wstring PRODUCT = L"1103";
const std::wstring VERSION = L"1.0.0.0";
const std::wstring SECTION = L"global";

CAutoPtr<Params> OneInt(const wchar_t* szName, int32_t nValue)
{
    CAutoPtr<Params> p = CreateParams();
    SetIntValue(p, szName, nValue);
    return p;
}

// A fresh object on the file, so that nothing can come from memory.
CAutoPtr<Params> ReadBack(const std::wstring& wstrPath)
{
    return SettingsStorage::OpenReadOnly(wstrPath)->ReadSection(PRODUCT, VERSION, SECTION);
}

class SettingsStorageTest : public ::testing::Test
{
protected:
    CAutoPtr<SettingsStorage> CreateWithSection()
    {
        CAutoPtr<SettingsStorage> pStorage = SettingsStorage::OpenOrCreate(m_wstrPath);
        pStorage->CreateSection(PRODUCT, VERSION, SECTION);
        return pStorage;
    }

    QZTEST::TempFolder m_folder;
    const std::wstring m_wstrPath = m_folder.Join(L"storage.xml");
};

// ---- every type through the file ----

TEST_F(SettingsStorageTest, EveryTypeReadsBackEqualAndIsWrittenAsTextUnlessItNeedsHex)
{
    CAutoPtr<Params> pWritten = EveryTypeTree();
    CreateWithSection()->ReplaceEntries(PRODUCT, VERSION, SECTION, pWritten);
    CAutoPtr<Params> pRead = ReadBack(m_wstrPath);
    EXPECT_EQ(pWritten->Compare(pRead), 0);
    // Compare takes -0 for 0: check the sign bits. A double NaN it tells from a number (ValueCompare in
    // params_test.cpp); a float NaN has no row there.
    EXPECT_TRUE(std::signbit(GetFloatValue(pRead, L"float_minus_zero")));
    EXPECT_TRUE(std::signbit(GetDoubleValue(pRead, L"double_minus_zero")));
    EXPECT_TRUE(std::isnan(GetFloatValue(pRead, L"float_nan")));
    EXPECT_EQ(GetStringValue(pRead, L"str_nul"), std::wstring(L"a\0b\0", 4));
    // The text forms of the codec (sscodec_test.cpp: what is XML-safe, upper-case hex) as the file uses them.
    const std::string strXml = QZTEST::ReadFileBytes(m_wstrPath);
    for (const char* szPart : {
             "<product name=\"1103\">",
             "name=\"str\" type=\"STRING_T\" value=\"hello world\"",
             "name=\"str_nul\" type=\"STRING_T\" hex=\"6100000062000000\"",
             "name=\"long_min\" type=\"LONG_T\" value=\"-9223372036854775808\"",
             "name=\"double_third\" type=\"DOUBLE_T\" value=\"0.3333333333333333\"",
             "name=\"bin_empty\" type=\"BINARY_T\" hex=\"\"",
             "name=\"params_null\" type=\"PARAMS_T\" null=\"true\"",
             "name_hex=\"0100\"",
         })
        EXPECT_NE(strXml.find(szPart), std::string::npos) << szPart;
    EXPECT_LT(strXml.find("bool_false"), strXml.find("bool_true")) << "entries are written in name order";
    EXPECT_EQ(strXml.find('\t'), std::string::npos) << "control characters must not reach the file raw";
}

TEST_F(SettingsStorageTest, NestingUpToTheLimitReadsBackDeeperOrSelfContainingIsRefused)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    CAutoPtr<Params> pDeep = NestedLevels(QZSTD::SsXml::MAX_DEPTH);
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pDeep);
    EXPECT_EQ(pDeep->Compare(ReadBack(m_wstrPath)), 0);
    const std::string strBefore = QZTEST::ReadFileBytes(m_wstrPath);

    // Deeper than the limit: a Params that contains itself, and an array that contains itself.
    CAutoPtr<Params> pSelf = CreateParams();
    SetParamsValue(pSelf, L"self", pSelf);
    const std::optional<QZError> error =
        ErrorOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pSelf); });
    pSelf->DeleteValue(L"self", true);  // breaks the reference cycle
    ASSERT_TRUE(error && error->Is(MODULE, VALUE_NOT_STORABLE));
    EXPECT_NE(error->GetMessage().find(L"1103/1.0.0.0/global/self/self"), std::wstring::npos)
        << error->what();

    CAutoPtr<ArrayValue> pArray = CreateArray(1);
    pArray->SetAt(0, pArray);
    CAutoPtr<Params> pWithArray = CreateParams();
    SetArrayValue(pWithArray, L"loop", pArray);
    EXPECT_EQ(ErrorCodeOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pWithArray); }, MODULE),
              VALUE_NOT_STORABLE);
    pArray->SetAt(0, nullptr);

    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strBefore);
}

// ---- sections and entries ----

// Missing product or version is 1192, a missing section 1186, bad arguments 1187, changes through a
// read-only storage READ_ONLY; none of them writes the file.
TEST_F(SettingsStorageTest, FailedCallsRaiseTheirCodeAndLeaveTheFile)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1));
    CAutoPtr<SettingsStorage> pReadOnly = SettingsStorage::OpenReadOnly(m_wstrPath);
    EXPECT_TRUE(pReadOnly->IsReadOnly());
    const std::string strBefore = QZTEST::ReadFileBytes(m_wstrPath);
    const CAutoPtr<Params> pEntries = OneInt(L"a", 2);
    SettingsStorage* const p = pStorage;
    SettingsStorage* const pRo = pReadOnly;
    const char* const STD = QZSTD::Err::MODULE;
    const int MISSING = QZSTD::Err::PRODUCT_MISSING, NOT_FOUND = QZSTD::Err::NOT_FOUND,
              BAD = QZSTD::Err::BAD_PARAM;
    // What is tried, the call, and the module and code it raises.
    const std::tuple<const char*, std::function<void()>, const char*, int> rows[] = {
        {"read: no product", [&] { p->ReadSection(L"9999", VERSION, SECTION); }, STD, MISSING},
        {"read: no version", [&] { p->ReadSection(PRODUCT, L"2.0", SECTION); }, STD, MISSING},
        {"read: no section", [&] { p->ReadSection(PRODUCT, VERSION, L"other"); }, STD, NOT_FOUND},
        {"create: empty product", [&] { p->CreateSection(L"", VERSION, SECTION); }, STD, BAD},
        {"create: empty version", [&] { p->CreateSection(PRODUCT, L"", SECTION); }, STD, BAD},
        {"create: empty section", [&] { p->CreateSection(PRODUCT, VERSION, L""); }, STD, BAD},
        {"replace: null entries", [&] { p->ReplaceEntries(PRODUCT, VERSION, SECTION, nullptr); }, STD, BAD},
        {"open: empty path", [] { SettingsStorage::OpenOrCreate(L""); }, STD, BAD},
        {"open read-only: empty path", [] { SettingsStorage::OpenReadOnly(L""); }, STD, BAD},
        {"read-only create", [&] { pRo->CreateSection(PRODUCT, VERSION, L"new"); }, MODULE, READ_ONLY},
    };
    for (const auto& [szWhat, fn, szModule, nCode] : rows) {
        EXPECT_EQ(ErrorCodeOf(fn, szModule), nCode) << szWhat;
        EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strBefore) << "a failed call wrote the file";
    }
    EXPECT_FALSE(pStorage->SectionExists(PRODUCT, VERSION, L"other"));
    EXPECT_FALSE(pStorage->SectionExists(L"9999", VERSION, SECTION));
}

TEST_F(SettingsStorageTest, CreateSectionCreatesWhatIsMissingAndKeepsAnExistingSection)
{
    CAutoPtr<SettingsStorage> pStorage = SettingsStorage::OpenOrCreate(m_wstrPath);
    EXPECT_TRUE(pStorage->EnumProducts().empty());
    pStorage->CreateSection(L".core", L".independent", L"SubscriptionData");
    pStorage->CreateSection(L".core", L".core", L"b");
    pStorage->CreateSection(L".core", L".core", L"a");
    pStorage->ReplaceEntries(L".core", L".core", L"a", OneInt(L"x", 1));
    pStorage->CreateSection(L".core", L".core", L"a");
    EXPECT_EQ(GetIntValue(pStorage->ReadSection(L".core", L".core", L"a"), L"x"), 1);
    EXPECT_EQ(pStorage->EnumProducts(), std::vector<std::wstring>{L".core"});
    EXPECT_EQ(pStorage->EnumVersions(L".core"), (std::vector<std::wstring>{L".core", L".independent"}));
    EXPECT_EQ(pStorage->EnumSections(L".core", L".core"), (std::vector<std::wstring>{L"a", L"b"}));
    EXPECT_EQ(pStorage->ReadSection(L".core", L".independent", L"SubscriptionData")->GetSize(), 0);
}

TEST_F(SettingsStorageTest, ReplaceKeepsWhatItDoesNotNameDeleteRemovesEntriesAndSections)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    CAutoPtr<Params> pFirst = OneInt(L"a", 1);
    SetIntValue(pFirst, L"b", 2);
    SetParamsValue(pFirst, L"nested", OneInt(L"old", 1));
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pFirst);
    CAutoPtr<Params> pSecond = OneInt(L"b", 3);
    SetParamsValue(pSecond, L"nested", OneInt(L"new", 2));
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pSecond);

    CAutoPtr<Params> pExpected = OneInt(L"a", 1);
    SetIntValue(pExpected, L"b", 3);
    SetParamsValue(pExpected, L"nested", OneInt(L"new", 2));  // replaced whole
    EXPECT_EQ(pExpected->Compare(ReadBack(m_wstrPath)), 0);
    pStorage->DeleteEntries(PRODUCT, VERSION, SECTION, {L"a", L"nested", L"not-there", L""});
    EXPECT_EQ(OneInt(L"b", 3)->Compare(ReadBack(m_wstrPath)), 0);

    EXPECT_TRUE(pStorage->DeleteSection(PRODUCT, VERSION, SECTION));
    EXPECT_FALSE(pStorage->DeleteSection(PRODUCT, VERSION, SECTION));
    EXPECT_FALSE(pStorage->DeleteSection(L"9999", VERSION, SECTION));
    EXPECT_TRUE(pStorage->EnumSections(PRODUCT, VERSION).empty());
}

// The merge of nested entries of several writers is proven by the processes-and-threads test below;
// here what is not merged: a stored scalar or null is replaced by the new nested Params.
TEST_F(SettingsStorageTest, MergeReplacesWhatIsNotANestedParams)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    CAutoPtr<Params> pScalar = OneInt(L"TASK_ID", 1);
    SetParamsValue(pScalar, L"CODES", nullptr);
    pStorage->MergeEntries(PRODUCT, VERSION, SECTION, pScalar);
    CAutoPtr<Params> pNested = CreateParams();
    SetParamsValue(pNested, L"TASK_ID", OneInt(L"T1", 1));
    SetParamsValue(pNested, L"CODES", OneInt(L"T1", 3));
    pStorage->MergeEntries(PRODUCT, VERSION, SECTION, pNested);
    EXPECT_EQ(pNested->Compare(ReadBack(m_wstrPath)), 0);
}

// ---- the file itself ----

TEST_F(SettingsStorageTest, MissingFileIs1205ReadOnlyAndCreatedWithItsFoldersOtherwise)
{
    const std::optional<QZError> error = ErrorOf([&] { SettingsStorage::OpenReadOnly(m_wstrPath); });
    ASSERT_TRUE(error && error->Is(QZSTD::Err::MODULE, QZSTD::Err::FILE_NOT_FOUND));
    EXPECT_EQ(error->GetArgs(), std::vector<std::wstring>{m_wstrPath});
    EXPECT_FALSE(QZTEST::PathExists(m_wstrPath));
    EXPECT_FALSE(QZTEST::PathExists(m_wstrPath + L".lock"));
    // OpenOrCreate makes the folder chain and an empty storage, and keeps an existing one.
    const std::wstring wstrPath = m_folder.Join(L"a/b/c/storage.xml");
    CAutoPtr<SettingsStorage> pStorage = SettingsStorage::OpenOrCreate(wstrPath);
    EXPECT_EQ(pStorage->GetPath(), wstrPath);
    EXPECT_FALSE(pStorage->IsReadOnly());
    EXPECT_TRUE(SettingsStorage::OpenReadOnly(wstrPath)->EnumProducts().empty());
    pStorage->CreateSection(PRODUCT, VERSION, SECTION);
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1));
    SettingsStorage::OpenOrCreate(wstrPath);
    EXPECT_EQ(OneInt(L"a", 1)->Compare(ReadBack(wstrPath)), 0);
}

TEST_F(SettingsStorageTest, AFailedWriteLeavesThePreviousContent)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1));
    const std::string strBefore = QZTEST::ReadFileBytes(m_wstrPath);
    // A folder where the temporary file must go makes the write fail before any byte is written.
    const std::wstring wstrTmp = QZSTD::TemporaryPathOf(m_wstrPath);
    QZTEST::MakeFolder(wstrTmp);
    const std::optional<QZError> error =
        ErrorOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 2)); });
    ASSERT_TRUE(error && error->Is(MODULE, WRITE_FAILED));
    EXPECT_NE(error->GetMessage().find(wstrTmp), std::wstring::npos) << error->what();
    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strBefore);
    QZTEST::RemoveAll(wstrTmp);
#ifndef _WIN32
    // /dev/full takes the open and fails the write with ENOSPC, as a full disk does.
    ASSERT_EQ(::symlink("/dev/full", QZSTD::WideToUtf8(wstrTmp).c_str()), 0);
    EXPECT_EQ(
        ErrorCodeOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, EveryTypeTree()); }, MODULE),
        WRITE_FAILED);
    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strBefore);
    EXPECT_FALSE(QZTEST::PathExists(wstrTmp)) << "the failed temporary file stays";
#endif
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 3));
    EXPECT_EQ(OneInt(L"a", 3)->Compare(ReadBack(m_wstrPath)), 0);
}

std::string InSection(const std::string& strBody)
{
    return "<?xml version=\"1.0\"?>\n<settings_storage format=\"1\">\n<product name=\"p\">\n"
           "<version name=\"v\">\n<section name=\"s\">\n" +
           strBody + "\n</section>\n</version>\n</product>\n</settings_storage>\n";
}

std::string DeeplyNested(int nLevels)
{
    std::string str;
    for (int i = 0; i < nLevels; ++i)
        str += "<value name='n' type='PARAMS_T'>";
    for (int i = 0; i < nLevels; ++i)
        str += "</value>";
    return InSection(str);
}

TEST_F(SettingsStorageTest, MalformedFilesAreReportedAndLeftUntouchedAlsoWhenDamagedAfterOpening)
{
    const std::string strValid = InSection("<value name='a' type='INT_T' value='1'/>");
    // The file, and the part of the message it gives; all BAD_CONTENT but the first.
    const std::pair<std::string, const wchar_t*> cases[] = {
        {strValid.substr(0, strValid.size() / 2), L"not well-formed XML at line 5"},
        {"<settings/>", L"root element \"settings\""},
        {"<settings_storage format='1'/><settings_storage format='1'/>", L"more than one root element"},
        {"<settings_storage format='2'/>", L"format \"2\" is not supported"},
        {InSection("<value name='a' type='FOO_T' value='1'/>"), L"at line 6: unknown type name \"FOO_T\""},
        {InSection("<value name='a' value='1'/>"), L"without a type"},
        {InSection("<value type='INT_T' value='1'/>"), L"without a name"},
        {InSection("<value name='' type='INT_T' value='1'/>"), L"empty name"},
        {InSection("<value name='a' type='INT_T' value='12x'/>"), L"bad INT_T text \"12x\""},
        {InSection("<value name='a' type='DATE_TIME_T' value='-2'/>"), L"DATE_TIME_T below -1"},
        {InSection("<value name='a' type='BINARY_T' hex='0G'/>"), L"bad hexadecimal \"0G\""},
        {InSection("<value name='a' type='BINARY_T' value='x'/>"), L"does not belong"},
        {InSection("<value name='a' type='STRING_T'/>"), L"without its payload"},
        {InSection("<value name='a' type='DATE_T' hex='4100'/>"), L"NUL byte"},
        {InSection("<value name='a' type='INT_T' value='1'/><value name='a' type='INT_T' value='2'/>"),
         L"duplicate value \"a\""},
        {"<settings_storage format='1'><product name='p'><version name='v'><section name='s'/>"
         "<section name='s'/></version></product></settings_storage>",
         L"duplicate section \"s\""},
        {InSection("<entry name='a'/>"), L"unexpected element <entry>"},
        {InSection("stray text"), L"unexpected text"},
        {InSection("<value name='a' type='INT_T' value='1'>x</value>"), L"content inside"},
        {InSection("<value name='a' type='ARRAY_T'><item name='x' type='INT_T' value='1'/></value>"),
         L"array element with a name"},
        {InSection("<value name='a' type='ARRAY_T'><item null='true' type='INT_T'/></value>"),
         L"\"null\" on a value of type INT_T"},
        {InSection("<value name='a' type='ARRAY_T'><item null='true' value='1'/></value>"),
         L"null array element with content"},
        {InSection("<value name='a' type='PARAMS_T' null='1'/>"), L"\"null\" must be \"true\""},
        {DeeplyNested(QZSTD::SsXml::MAX_DEPTH + 1), L"nested deeper than 100"},
    };
    // A storage opened before the damage: its calls refuse the file too, and a change does not overwrite it.
    CAutoPtr<SettingsStorage> pOpened = CreateWithSection();
    for (size_t i = 0; i < std::size(cases); ++i) {
        const auto& [strXml, szExpected] = cases[i];
        SCOPED_TRACE(QZSTD::WideToUtf8(szExpected));
        const int nCode = i == 0 ? NOT_XML : BAD_CONTENT;
        QZTEST::WriteFileBytes(m_wstrPath, strXml);
        const std::optional<QZError> error = ErrorOf([&] { SettingsStorage::OpenReadOnly(m_wstrPath); });
        ASSERT_TRUE(error && error->Is(MODULE, nCode)) << (error ? error->what() : "no error");
        EXPECT_NE(error->GetMessage().find(m_wstrPath), std::wstring::npos) << error->what();
        EXPECT_NE(error->GetMessage().find(szExpected), std::wstring::npos) << error->what();
        EXPECT_EQ(ErrorCodeOf([&] { SettingsStorage::OpenOrCreate(m_wstrPath); }, MODULE), nCode);
        EXPECT_EQ(
            ErrorCodeOf([&] { pOpened->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1)); }, MODULE),
            nCode);
        EXPECT_EQ(ErrorCodeOf([&] { pOpened->ReadSection(PRODUCT, VERSION, SECTION); }, MODULE), nCode);
        EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strXml) << "a malformed storage was overwritten";
        // The in-memory reader says the same, for the fuzz target.
        EXPECT_EQ(ErrorCodeOf([&] { SettingsStorage::ParseForTest(strXml.data(), strXml.size()); }, MODULE),
                  nCode);
    }
}

// ---- the in-memory reader for fuzzing ----

// The text it writes (name order, safe strings as text, shortest numbers, upper-case hex) is the file's,
// proven by the every-type test above.
TEST(SettingsStorageParseForTest, CanonicalTextReadsBackToItself)
{
    const std::string strInput = InSection(
        "<value name='b' type='FLOAT_T' value='1e0'/>\n<value name='a' type='STRING_T' hex='41004200'/>");
    const std::string strCanonical = SettingsStorage::ParseForTest(strInput.data(), strInput.size());
    EXPECT_EQ(SettingsStorage::ParseForTest(strCanonical.data(), strCanonical.size()), strCanonical);
    EXPECT_NE(strCanonical.find("name=\"a\" type=\"STRING_T\" value=\"AB\""), std::string::npos)
        << strCanonical;
    EXPECT_EQ(ErrorCodeOf([] { SettingsStorage::ParseForTest(nullptr, 0); }, MODULE), NOT_XML);
}

// ---- several processes and threads at once ----

// "<prefix>|<storage path>": what a child writes (UPDATES_PER_WRITER entries).
constexpr const char* CHILD_ENV = "QZ_SS_TEST_CHILD";
constexpr int UPDATES_PER_WRITER = 50;

// Entry <prefix><i> = i at the top of the section, and <prefix><i> = false inside the nested
// "TASK_ID", which only survives if the merge keeps the other writers' nested entries.
void WriteEntries(SettingsStorage* pStorage, const std::wstring& wstrPrefix)
{
    for (int i = 0; i < UPDATES_PER_WRITER; ++i) {
        const std::wstring wstrName = wstrPrefix + std::to_wstring(i);
        pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(wstrName.c_str(), i));
        CAutoPtr<Params> pTask = CreateParams();
        SetBoolValue(pTask, wstrName.c_str(), false);
        CAutoPtr<Params> pOuter = CreateParams();
        SetParamsValue(pOuter, L"TASK_ID", pTask);
        pStorage->MergeEntries(PRODUCT, VERSION, SECTION, pOuter);
    }
}

// The test executable plays the other writers itself: started with CHILD_ENV set, it writes its entries
// before the tests would start and ends.
const bool g_bWriterChild = [] {
    const std::wstring wstrOrder = QZTEST::GetEnv(CHILD_ENV);
    const size_t nBar = wstrOrder.find(L'|');
    if (nBar == std::wstring::npos)
        return false;
    try {
        WriteEntries(SettingsStorage::OpenOrCreate(wstrOrder.substr(nBar + 1)), wstrOrder.substr(0, nBar));
    } catch (...) {
        QZTEST::EndChild(3);
    }
    QZTEST::EndChild(0);
}();

// Two processes and, at the same time, three threads with their own storage objects: every call must
// see what the others wrote.
TEST_F(SettingsStorageTest, ProcessesAndThreadsReplacingAndMergingEntriesLoseNothing)
{
    ASSERT_FALSE(g_bWriterChild);
    CreateWithSection();
    std::vector<CAutoPtr<QZSTD::LaunchWaiter>> vecChildren;
    for (const wchar_t* szPrefix : {L"first_", L"second_"})
        vecChildren.push_back(
            QZTEST::StartSelf({{QZSTD::Utf8ToWide(CHILD_ENV), szPrefix + (L"|" + m_wstrPath)}}));
    std::vector<std::thread> vecThreads;
    for (const wchar_t* szPrefix : {L"t0_", L"t1_", L"t2_"}) {
        vecThreads.emplace_back(
            [this, szPrefix] { WriteEntries(SettingsStorage::OpenOrCreate(m_wstrPath), szPrefix); });
    }
    for (std::thread& t : vecThreads)
        t.join();
    for (QZSTD::LaunchWaiter* pChild : vecChildren) {
        ASSERT_TRUE(pChild->Wait(120000)) << "a child did not finish";
        EXPECT_EQ(pChild->ExitCode(), 0u);
    }
    CAutoPtr<Params> pSection = ReadBack(m_wstrPath);
    CAutoPtr<Params> pTasks = GetParamsValue(pSection, L"TASK_ID");
    EXPECT_EQ(pSection->GetSize(), 5 * UPDATES_PER_WRITER + 1);
    EXPECT_EQ(pTasks->GetSize(), 5 * UPDATES_PER_WRITER);
    for (const wchar_t* szPrefix : {L"first_", L"second_", L"t0_", L"t1_", L"t2_"}) {
        for (int i = 0; i < UPDATES_PER_WRITER; ++i) {
            const std::wstring wstrName = szPrefix + std::to_wstring(i);
            EXPECT_EQ(GetIntValue(pSection, wstrName.c_str(), -1), i) << QZSTD::WideToUtf8(wstrName);
            EXPECT_TRUE(pTasks->DoesExist(wstrName.c_str())) << QZSTD::WideToUtf8(wstrName);
        }
    }
}

// ---- the management agent's local storage ----

TEST(SettingsStorageLocalPath, DefaultsToTheMachineWideDataFolderUnlessTheEnvironmentSaysOtherwise)
{
    const std::wstring wstrSaved = QZTEST::GetEnv(QZSTD::LOCAL_SS_PATH_ENV);
    QZTEST::SetEnv(QZSTD::LOCAL_SS_PATH_ENV, L"");
    const std::wstring wstrPath = QZSTD::GetLocalSettingsStoragePath();
#ifdef _WIN32
    EXPECT_NE(wstrPath.find(L"\\QZ\\SettingsStorage\\local_ss.xml"), std::wstring::npos);
    EXPECT_GT(wstrPath.find(L"\\QZ"), 0u) << "needs the application-data folder in front";
#else
    EXPECT_EQ(wstrPath, L"/var/opt/qz/settingsstorage/local_ss.xml");
#endif
    QZTEST::SetEnv(QZSTD::LOCAL_SS_PATH_ENV, L"C:\\test\\local_ss.xml");
    EXPECT_EQ(QZSTD::GetLocalSettingsStoragePath(), L"C:\\test\\local_ss.xml");
    QZTEST::SetEnv(QZSTD::LOCAL_SS_PATH_ENV, wstrSaved);
}

}  // namespace

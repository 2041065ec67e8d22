// The settings storage against real files: every value type through the file and back, the
// section operations and their error codes, malformed files, failed writes and the local path.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <optional>

#ifndef _WIN32
#include <unistd.h>
#endif

#include "std/error.h"
#include "std/par/dump.h"
#include "std/par/paramshelpers.h"
#include "std/ss/atomicfile.h"
#include "std/ss/settingsstorage.h"
#include "std/ss/sserrors.h"
#include "std/ss/ssxml.h"
#include "std/strconv.h"
#include "tests/testutil/errorof.h"
#include "tests/testutil/fsutil.h"

namespace {

using QZPAR::Params;
using QZSTD::CAutoPtr;
using QZSTD::QZError;
using QZSTD::SettingsStorage;
using QZTEST::ErrorOf;

const std::wstring PRODUCT = L"1103";
const std::wstring VERSION = L"1.0.0.0";
const std::wstring SECTION = L"global";

// Text for failure messages: the dump of a Params.
std::string Dump(Params* pParams)
{
    return QZSTD::WideToUtf8(QZPAR::DumpParams(pParams));
}

::testing::AssertionResult SameParams(Params* pExpected, Params* pActual)
{
    if (pExpected->Compare(pActual) == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "expected:\n" << Dump(pExpected) << "actual:\n" << Dump(pActual);
}

::testing::AssertionResult IsError(const std::optional<QZError>& error, const char* szModule, int nCode)
{
    if (!error)
        return ::testing::AssertionFailure() << "no error raised";
    if (!error->Is(szModule, nCode))
        return ::testing::AssertionFailure() << "raised " << error->what();
    return ::testing::AssertionSuccess() << error->what();
}

// A wide string from UTF-16 code units; a pair becomes one character where wchar_t has 32 bits.
std::wstring W16(std::initializer_list<uint32_t> units)
{
    std::u16string str;
    for (uint32_t c : units)
        str += static_cast<char16_t>(c);
    std::wstring wstr;
    for (size_t i = 0; i < str.size(); ++i) {
        const uint32_t c = str[i];
        if (sizeof(wchar_t) == 4 && c >= 0xD800 && c <= 0xDBFF && i + 1 < str.size() &&
            str[i + 1] >= 0xDC00 && str[i + 1] <= 0xDFFF) {
            wstr += static_cast<wchar_t>(0x10000 + ((c - 0xD800) << 10) + (str[i + 1] - 0xDC00));
            ++i;
        } else {
            wstr += static_cast<wchar_t>(c);
        }
    }
    return wstr;
}

CAutoPtr<Params> OneInt(const wchar_t* szName, int32_t nValue)
{
    CAutoPtr<Params> p = QZPAR::CreateParams();
    QZPAR::SetIntValue(p, szName, nValue);
    return p;
}

CAutoPtr<Params> NestedParams()
{
    CAutoPtr<Params> pDeeper = QZPAR::CreateParams();
    QZPAR::SetStringValue(pDeeper, L"s", L"x");
    CAutoPtr<Params> p = QZPAR::CreateParams();
    QZPAR::SetIntValue(p, L"inner", 1);
    QZPAR::SetParamsValue(p, L"deeper", pDeeper);
    return p;
}

CAutoPtr<QZPAR::ArrayValue> MixedArray()
{
    CAutoPtr<QZPAR::ArrayValue> pInner = QZPAR::CreateArray(1);
    CAutoPtr<QZPAR::ArrayValue> pArray = QZPAR::CreateArray(6);
    pArray->SetAt(0, QZPAR::CreateInt(1));
    pArray->SetAt(2, QZPAR::CreateString(L"s"));
    pArray->SetAt(3, QZPAR::CreateParamsValue(OneInt(L"a", 1)));
    pArray->SetAt(4, pInner);
    pArray->SetAt(5, QZPAR::CreateParamsValue(nullptr));
    return pArray;
}

void AddStrings(Params* p)
{
    QZPAR::SetStringValue(p, L"str", L"hello world");
    QZPAR::SetStringValue(p, L"str_empty", L"");
    QZPAR::SetStringValue(p, L"str_nul", std::wstring_view(L"a\0b\0", 4));
    QZPAR::SetStringValue(p, L"str_controls", W16({'1', 0x0A, '2', 0x09, 0x0D, 0x01, 0x7F, 0x85, 0x1B}));
    QZPAR::SetStringValue(p, L"str_lone_surrogates", W16({0xD800, 'x', 0xDFFF, 0xDBFF}));
    QZPAR::SetStringValue(p, L"str_noncharacters", W16({0xFFFE, 0xFFFF}));
    QZPAR::SetStringValue(p, L"str_unicode", W16({0xE9, 0x4E2D, 0xD83D, 0xDE00, 0xFFFD}));
    QZPAR::SetStringValue(p, L"str_spaces", L"  x  ");
    QZPAR::SetStringValue(p, L"str_markup", L"<a href=\"x\">&amp;</a> 'q' ]]>");
}

void AddNumbers(Params* p)
{
    QZPAR::SetBoolValue(p, L"bool_true", true);
    QZPAR::SetBoolValue(p, L"bool_false", false);
    QZPAR::SetIntValue(p, L"int_min", std::numeric_limits<int32_t>::min());
    QZPAR::SetIntValue(p, L"int_max", std::numeric_limits<int32_t>::max());
    QZPAR::SetLongValue(p, L"long_min", std::numeric_limits<int64_t>::min());
    QZPAR::SetLongValue(p, L"long_max", std::numeric_limits<int64_t>::max());
    QZPAR::SetDateTimeValue(p, L"dt_none", -1);
    QZPAR::SetDateTimeValue(p, L"dt_max", std::numeric_limits<int32_t>::max());
    using F = std::numeric_limits<float>;
    using D = std::numeric_limits<double>;
    QZPAR::SetFloatValue(p, L"float_tenth", 0.1f);
    QZPAR::SetFloatValue(p, L"float_minus_zero", -0.0f);
    QZPAR::SetFloatValue(p, L"float_nan", F::quiet_NaN());
    QZPAR::SetFloatValue(p, L"float_inf", F::infinity());
    QZPAR::SetDoubleValue(p, L"double_third", 1.0 / 3.0);
    QZPAR::SetDoubleValue(p, L"double_minus_zero", -0.0);
    QZPAR::SetDoubleValue(p, L"double_nan", D::quiet_NaN());
    QZPAR::SetDoubleValue(p, L"double_minus_inf", -D::infinity());
    QZPAR::SetDoubleValue(p, L"double_denorm", D::denorm_min());
}

void AddBytesAndTrees(Params* p)
{
    QZPAR::SetDateValue(p, L"date_ascii", "2024-01-31");
    QZPAR::SetDateValue(p, L"date_empty", "");
    QZPAR::SetDateValue(p, L"date_bytes", "\xE9t\xE9\x01\x7F");
    const unsigned char bytes[] = {0, 1, 0x7F, 0x80, 0xFF, '<', '&'};
    QZPAR::SetBinaryValue(p, L"bin", bytes, sizeof bytes);
    QZPAR::SetBinaryValue(p, L"bin_empty", nullptr, 0);
    QZPAR::SetParamsValue(p, L"params_null", nullptr);
    QZPAR::SetParamsValue(p, L"params_empty", QZPAR::CreateParams());
    QZPAR::SetParamsValue(p, L"params_nested", NestedParams());
    QZPAR::SetArrayValue(p, L"array_empty", QZPAR::CreateArray(0));
    QZPAR::SetArrayValue(p, L"array_mixed", MixedArray());
    QZPAR::SetIntValue(p, W16({'t', 0x09, 'a', 'b'}).c_str(), 1);
    QZPAR::SetIntValue(p, W16({0x01}).c_str(), 2);
    QZPAR::SetIntValue(p, W16({0xE9, 0xD800}).c_str(), 3);
    QZPAR::SetIntValue(p, L"with space and \"quotes\"", 4);
}

CAutoPtr<Params> EveryType()
{
    CAutoPtr<Params> p = QZPAR::CreateParams();
    AddStrings(p);
    AddNumbers(p);
    AddBytesAndTrees(p);
    return p;
}

// A section whose deepest entry sits at nLevels (the section's own entries are level 1).
CAutoPtr<Params> NestedLevels(int nLevels)
{
    CAutoPtr<Params> p = OneInt(L"leaf", nLevels);
    for (int i = nLevels - 1; i >= 1; --i) {
        CAutoPtr<Params> pOuter = QZPAR::CreateParams();
        QZPAR::SetParamsValue(pOuter, L"n", p);
        p = pOuter;
    }
    return p;
}

// A fresh object on the file, so that nothing can come from memory.
CAutoPtr<Params> ReadBack(const std::wstring& wstrPath, const std::wstring& wstrProduct = PRODUCT,
                          const std::wstring& wstrVersion = VERSION,
                          const std::wstring& wstrSection = SECTION)
{
    return SettingsStorage::OpenReadOnly(wstrPath)->ReadSection(wstrProduct, wstrVersion, wstrSection);
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

using SettingsStorageRoundTrip = SettingsStorageTest;

TEST_F(SettingsStorageRoundTrip, EveryTypeReadsBackEqualAndIsWrittenAsTextUnlessItNeedsHex)
{
    CAutoPtr<Params> pWritten = EveryType();
    CreateWithSection()->ReplaceEntries(PRODUCT, VERSION, SECTION, pWritten);
    CAutoPtr<Params> pRead = ReadBack(m_wstrPath);
    EXPECT_TRUE(SameParams(pWritten, pRead));
    // Compare takes -0 for 0 and every NaN for every other: check those bits separately.
    EXPECT_TRUE(std::signbit(QZPAR::GetFloatValue(pRead, L"float_minus_zero")));
    EXPECT_TRUE(std::signbit(QZPAR::GetDoubleValue(pRead, L"double_minus_zero")));
    EXPECT_TRUE(std::isnan(QZPAR::GetFloatValue(pRead, L"float_nan")));
    EXPECT_TRUE(std::isnan(QZPAR::GetDoubleValue(pRead, L"double_nan")));
    EXPECT_EQ(QZPAR::GetStringValue(pRead, L"str_nul"), std::wstring(L"a\0b\0", 4));
    EXPECT_EQ(QZPAR::GetParamsValue(pRead, L"params_null").Get(), nullptr);
    CAutoPtr<QZPAR::ArrayValue> pArray = QZPAR::GetArrayValue(pRead, L"array_mixed");
    ASSERT_EQ(pArray->GetSize(), 6u);
    CAutoPtr<QZPAR::Value> pNull;
    pArray->GetAt(1, &pNull);
    EXPECT_EQ(pNull.Get(), nullptr);
    const std::string strXml = QZTEST::ReadFileBytes(m_wstrPath);
    for (const char* szType : {"STRING_T", "BOOL_T", "INT_T", "LONG_T", "DATE_TIME_T", "DATE_T", "BINARY_T",
                               "FLOAT_T", "DOUBLE_T", "PARAMS_T", "ARRAY_T"})
        EXPECT_NE(strXml.find(std::string("type=\"") + szType + "\""), std::string::npos) << szType;
    EXPECT_NE(strXml.find("<product name=\"1103\">"), std::string::npos) << strXml;
    EXPECT_NE(strXml.find("name=\"str\" type=\"STRING_T\" value=\"hello world\""), std::string::npos);
    EXPECT_NE(strXml.find("name=\"str_nul\" type=\"STRING_T\" hex=\"6100000062000000\""), std::string::npos);
    EXPECT_NE(strXml.find("name=\"str_spaces\" type=\"STRING_T\" value=\"  x  \""), std::string::npos);
    EXPECT_NE(strXml.find("name=\"long_min\" type=\"LONG_T\" value=\"-9223372036854775808\""),
              std::string::npos);
    EXPECT_NE(strXml.find("name=\"double_third\" type=\"DOUBLE_T\" value=\"0.3333333333333333\""),
              std::string::npos);
    EXPECT_NE(strXml.find("name=\"bin_empty\" type=\"BINARY_T\" hex=\"\""), std::string::npos);
    EXPECT_NE(strXml.find("name=\"params_null\" type=\"PARAMS_T\" null=\"true\""), std::string::npos);
    EXPECT_NE(strXml.find("name_hex=\"0100\""), std::string::npos);
    EXPECT_EQ(strXml.find('\t'), std::string::npos) << "control characters must not reach the file raw";
}

TEST_F(SettingsStorageRoundTrip, OddProductVersionAndSectionNamesReadBack)
{
    const std::wstring wstrProduct = W16({'p', 0x0A, 0xD800});
    const std::wstring wstrVersion = L".independent";
    const std::wstring wstrSection = W16({0x4E2D, ' ', '&', '<'});
    CAutoPtr<SettingsStorage> pStorage = SettingsStorage::OpenOrCreate(m_wstrPath);
    pStorage->CreateSection(wstrProduct, wstrVersion, wstrSection);
    pStorage->ReplaceEntries(wstrProduct, wstrVersion, wstrSection, OneInt(L"x", 7));
    EXPECT_EQ(QZPAR::GetIntValue(ReadBack(m_wstrPath, wstrProduct, wstrVersion, wstrSection), L"x"), 7);
    EXPECT_EQ(SettingsStorage::OpenReadOnly(m_wstrPath)->EnumProducts(),
              std::vector<std::wstring>{wstrProduct});
}

TEST_F(SettingsStorageRoundTrip, NestingUpToTheLimitReadsBackDeeperOrSelfContainingIsRefused)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    CAutoPtr<Params> pDeep = NestedLevels(QZSTD::SsXml::MAX_DEPTH);
    QZPAR::SetIntValue(pDeep, L"kept", 1);
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pDeep);
    EXPECT_TRUE(SameParams(pDeep, ReadBack(m_wstrPath)));
    const std::string strBefore = QZTEST::ReadFileBytes(m_wstrPath);

    const CAutoPtr<Params> pTooDeep = NestedLevels(QZSTD::SsXml::MAX_DEPTH + 1);
    EXPECT_TRUE(IsError(ErrorOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pTooDeep); }),
                        QZSTD::SsErr::MODULE, QZSTD::SsErr::VALUE_NOT_STORABLE));

    CAutoPtr<Params> pSelf = QZPAR::CreateParams();
    QZPAR::SetParamsValue(pSelf, L"self", pSelf);
    const std::optional<QZError> error =
        ErrorOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pSelf); });
    pSelf->DeleteValue(L"self", true);  // breaks the reference cycle
    EXPECT_TRUE(IsError(error, QZSTD::SsErr::MODULE, QZSTD::SsErr::VALUE_NOT_STORABLE));
    EXPECT_NE(error->GetMessage().find(L"1103/1.0.0.0/global/self/self"), std::wstring::npos)
        << error->what();

    CAutoPtr<QZPAR::ArrayValue> pArray = QZPAR::CreateArray(1);
    pArray->SetAt(0, pArray);
    CAutoPtr<Params> pWithArray = QZPAR::CreateParams();
    QZPAR::SetArrayValue(pWithArray, L"loop", pArray);
    EXPECT_TRUE(IsError(ErrorOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pWithArray); }),
                        QZSTD::SsErr::MODULE, QZSTD::SsErr::VALUE_NOT_STORABLE));
    pArray->SetAt(0, nullptr);

    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strBefore);
}

// ---- sections and entries ----

using SettingsStorageSections = SettingsStorageTest;

// Missing product or version is 1192, a missing section 1186, bad arguments 1187, changes through a
// read-only storage READ_ONLY; none of them writes the file.
TEST_F(SettingsStorageSections, FailedCallsRaiseTheirCodeAndLeaveTheFile)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1));
    CAutoPtr<SettingsStorage> pReadOnly = SettingsStorage::OpenReadOnly(m_wstrPath);
    EXPECT_TRUE(pReadOnly->IsReadOnly());
    const std::string strBefore = QZTEST::ReadFileBytes(m_wstrPath);
    const CAutoPtr<Params> pEntries = OneInt(L"a", 2);
    SettingsStorage* const p = pStorage;
    SettingsStorage* const pRo = pReadOnly;
    using namespace QZSTD::Err;
    const char* const SS = QZSTD::SsErr::MODULE;
    const int RO = QZSTD::SsErr::READ_ONLY;
    struct Row
    {
        const char* szWhat;
        std::function<void()> fn;
        const char* szModule;
        int nCode;
    };
    const Row rows[] = {
        {"read: no product", [&] { p->ReadSection(L"9999", VERSION, SECTION); }, MODULE, PRODUCT_MISSING},
        {"read: no version", [&] { p->ReadSection(PRODUCT, L"2.0", SECTION); }, MODULE, PRODUCT_MISSING},
        {"read: no section", [&] { p->ReadSection(PRODUCT, VERSION, L"other"); }, MODULE, NOT_FOUND},
        {"enum versions: no product", [&] { p->EnumVersions(L"9999"); }, MODULE, PRODUCT_MISSING},
        {"enum sections: no version", [&] { p->EnumSections(PRODUCT, L"2.0"); }, MODULE, PRODUCT_MISSING},
        {"replace: no product", [&] { p->ReplaceEntries(L"9999", VERSION, SECTION, pEntries); }, MODULE,
         PRODUCT_MISSING},
        {"merge: no version", [&] { p->MergeEntries(PRODUCT, L"2.0", SECTION, pEntries); }, MODULE,
         PRODUCT_MISSING},
        {"replace: no section", [&] { p->ReplaceEntries(PRODUCT, VERSION, L"other", pEntries); }, MODULE,
         NOT_FOUND},
        {"delete: no section", [&] { p->DeleteEntries(PRODUCT, VERSION, L"other", {L"x"}); }, MODULE,
         NOT_FOUND},
        {"create: empty product", [&] { p->CreateSection(L"", VERSION, SECTION); }, MODULE, BAD_PARAM},
        {"create: empty version", [&] { p->CreateSection(PRODUCT, L"", SECTION); }, MODULE, BAD_PARAM},
        {"create: empty section", [&] { p->CreateSection(PRODUCT, VERSION, L""); }, MODULE, BAD_PARAM},
        {"replace: null entries", [&] { p->ReplaceEntries(PRODUCT, VERSION, SECTION, nullptr); }, MODULE,
         BAD_PARAM},
        {"open: empty path", [] { SettingsStorage::OpenOrCreate(L""); }, MODULE, BAD_PARAM},
        {"open read-only: empty path", [] { SettingsStorage::OpenReadOnly(L""); }, MODULE, BAD_PARAM},
        {"read-only create", [&] { pRo->CreateSection(PRODUCT, VERSION, L"new"); }, SS, RO},
        {"read-only replace", [&] { pRo->ReplaceEntries(PRODUCT, VERSION, SECTION, pEntries); }, SS, RO},
        {"read-only merge", [&] { pRo->MergeEntries(PRODUCT, VERSION, SECTION, pEntries); }, SS, RO},
        {"read-only delete entries", [&] { pRo->DeleteEntries(PRODUCT, VERSION, SECTION, {L"a"}); }, SS, RO},
        {"read-only delete section", [&] { pRo->DeleteSection(PRODUCT, VERSION, SECTION); }, SS, RO},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.szWhat);
        EXPECT_TRUE(IsError(ErrorOf(row.fn), row.szModule, row.nCode));
        EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strBefore) << "a failed call wrote the file";
    }
    EXPECT_FALSE(pStorage->SectionExists(PRODUCT, VERSION, L"other"));
    EXPECT_FALSE(pStorage->SectionExists(L"9999", VERSION, SECTION));
}

TEST_F(SettingsStorageSections, CreateSectionCreatesWhatIsMissingAndKeepsAnExistingSection)
{
    CAutoPtr<SettingsStorage> pStorage = SettingsStorage::OpenOrCreate(m_wstrPath);
    EXPECT_TRUE(pStorage->EnumProducts().empty());
    pStorage->CreateSection(L".core", L".independent", L"SubscriptionData");
    pStorage->CreateSection(L".core", L".core", L"a");
    pStorage->CreateSection(L".core", L".core", L"b");
    pStorage->ReplaceEntries(L".core", L".core", L"a", OneInt(L"x", 1));
    pStorage->CreateSection(L".core", L".core", L"a");
    EXPECT_EQ(QZPAR::GetIntValue(pStorage->ReadSection(L".core", L".core", L"a"), L"x"), 1);
    EXPECT_EQ(pStorage->EnumProducts(), std::vector<std::wstring>{L".core"});
    EXPECT_EQ(pStorage->EnumVersions(L".core"), (std::vector<std::wstring>{L".core", L".independent"}));
    EXPECT_EQ(pStorage->EnumSections(L".core", L".core"), (std::vector<std::wstring>{L"a", L"b"}));
    EXPECT_TRUE(pStorage->SectionExists(L".core", L".independent", L"SubscriptionData"));
    EXPECT_EQ(pStorage->ReadSection(L".core", L".independent", L"SubscriptionData")->GetSize(), 0);
}

TEST_F(SettingsStorageSections, ReplaceKeepsWhatItDoesNotNameDeleteRemovesEntriesAndSections)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    CAutoPtr<Params> pFirst = OneInt(L"a", 1);
    QZPAR::SetIntValue(pFirst, L"b", 2);
    QZPAR::SetParamsValue(pFirst, L"nested", OneInt(L"old", 1));
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pFirst);

    CAutoPtr<Params> pSecond = OneInt(L"b", 3);
    QZPAR::SetStringValue(pSecond, L"c", L"new");
    QZPAR::SetParamsValue(pSecond, L"nested", OneInt(L"new", 2));
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, pSecond);

    CAutoPtr<Params> pExpected = OneInt(L"a", 1);
    QZPAR::SetIntValue(pExpected, L"b", 3);
    QZPAR::SetStringValue(pExpected, L"c", L"new");
    QZPAR::SetParamsValue(pExpected, L"nested", OneInt(L"new", 2));  // replaced whole
    EXPECT_TRUE(SameParams(pExpected, ReadBack(m_wstrPath)));
    pStorage->DeleteEntries(PRODUCT, VERSION, SECTION, {L"a", L"c", L"nested", L"not-there", L""});
    EXPECT_TRUE(SameParams(OneInt(L"b", 3), ReadBack(m_wstrPath)));

    EXPECT_TRUE(pStorage->DeleteSection(PRODUCT, VERSION, SECTION));
    EXPECT_FALSE(pStorage->DeleteSection(PRODUCT, VERSION, SECTION));
    EXPECT_FALSE(pStorage->DeleteSection(L"9999", VERSION, SECTION));
    EXPECT_FALSE(pStorage->SectionExists(PRODUCT, VERSION, SECTION));
    EXPECT_TRUE(pStorage->EnumSections(PRODUCT, VERSION).empty());
}

TEST_F(SettingsStorageSections, MergeKeepsNestedEntriesOfOtherTasks)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    const auto taskResult = [](const wchar_t* szTaskId, int32_t nCode) {
        CAutoPtr<Params> pCodes = OneInt(szTaskId, nCode);
        CAutoPtr<Params> pIds = QZPAR::CreateParams();
        QZPAR::SetBoolValue(pIds, szTaskId, false);
        CAutoPtr<Params> p = QZPAR::CreateParams();
        QZPAR::SetParamsValue(p, L"TASK_ID", pIds);
        QZPAR::SetParamsValue(p, L"TASK_ID_RSLT_CODE", pCodes);
        return p;
    };
    pStorage->MergeEntries(PRODUCT, VERSION, SECTION, taskResult(L"T1", 5));
    pStorage->MergeEntries(PRODUCT, VERSION, SECTION, taskResult(L"T2", 0));
    pStorage->MergeEntries(PRODUCT, VERSION, SECTION, taskResult(L"T1", 7));

    CAutoPtr<Params> pRead = ReadBack(m_wstrPath);
    CAutoPtr<Params> pCodes = QZPAR::GetParamsValue(pRead, L"TASK_ID_RSLT_CODE");
    EXPECT_EQ(QZPAR::GetIntValue(pCodes, L"T1"), 7);
    EXPECT_EQ(QZPAR::GetIntValue(pCodes, L"T2"), 0);
    CAutoPtr<Params> pIds = QZPAR::GetParamsValue(pRead, L"TASK_ID");
    EXPECT_EQ(pIds->GetSize(), 2);

    // A stored value that is not a Params (or a null one) is replaced, not merged.
    CAutoPtr<Params> pScalar = QZPAR::CreateParams();
    QZPAR::SetIntValue(pScalar, L"TASK_ID", 1);
    QZPAR::SetParamsValue(pScalar, L"TASK_ID_RSLT_CODE", nullptr);
    pStorage->MergeEntries(PRODUCT, VERSION, SECTION, pScalar);
    pStorage->MergeEntries(PRODUCT, VERSION, SECTION, taskResult(L"T3", 3));
    pRead = ReadBack(m_wstrPath);
    EXPECT_TRUE(SameParams(QZPAR::GetParamsValue(pRead, L"TASK_ID_RSLT_CODE"), OneInt(L"T3", 3)));
}

TEST_F(SettingsStorageSections, EachCallSeesWhatOtherStorageObjectsWrote)
{
    CAutoPtr<SettingsStorage> pWriter = CreateWithSection();
    CAutoPtr<SettingsStorage> pReader = SettingsStorage::OpenReadOnly(m_wstrPath);
    CAutoPtr<SettingsStorage> pOtherWriter = SettingsStorage::OpenOrCreate(m_wstrPath);
    pWriter->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1));
    pOtherWriter->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"b", 2));
    CAutoPtr<Params> pRead = pReader->ReadSection(PRODUCT, VERSION, SECTION);
    EXPECT_EQ(QZPAR::GetIntValue(pRead, L"a"), 1);
    EXPECT_EQ(QZPAR::GetIntValue(pRead, L"b"), 2);
}

// ---- the file itself ----

using SettingsStorageFile = SettingsStorageTest;

TEST_F(SettingsStorageFile, MissingFileIs1205ReadOnlyAndCreatedWithItsFoldersOtherwise)
{
    const std::optional<QZError> error = ErrorOf([&] { SettingsStorage::OpenReadOnly(m_wstrPath); });
    ASSERT_TRUE(IsError(error, QZSTD::Err::MODULE, QZSTD::Err::FILE_NOT_FOUND));
    EXPECT_EQ(error->GetArgs(), std::vector<std::wstring>{m_wstrPath});
    EXPECT_FALSE(QZTEST::PathExists(m_wstrPath));
    EXPECT_FALSE(QZTEST::PathExists(m_wstrPath + L".lock"));
    EXPECT_TRUE(IsError(ErrorOf([&] { SettingsStorage::OpenReadOnly(m_folder.Join(L"no/such/folder.xml")); }),
                        QZSTD::Err::MODULE, QZSTD::Err::FILE_NOT_FOUND));
    // OpenOrCreate makes the folder chain and an empty storage, and keeps an existing one.
    const std::wstring wstrPath = m_folder.Join(L"a/b/c/storage.xml");
    CAutoPtr<SettingsStorage> pStorage = SettingsStorage::OpenOrCreate(wstrPath);
    EXPECT_EQ(pStorage->GetPath(), wstrPath);
    EXPECT_FALSE(pStorage->IsReadOnly());
    EXPECT_TRUE(QZTEST::PathExists(wstrPath));
    EXPECT_TRUE(SettingsStorage::OpenReadOnly(wstrPath)->EnumProducts().empty());
    pStorage->CreateSection(PRODUCT, VERSION, SECTION);
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1));
    SettingsStorage::OpenOrCreate(wstrPath);  // an existing storage is kept
    EXPECT_TRUE(SameParams(OneInt(L"a", 1), ReadBack(wstrPath)));
    EXPECT_FALSE(QZTEST::PathExists(QZSTD::TemporaryPathOf(wstrPath)));
}

TEST_F(SettingsStorageFile, AFailedWriteLeavesThePreviousContent)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1));
    const std::string strBefore = QZTEST::ReadFileBytes(m_wstrPath);
    // A folder where the temporary file must go makes the write fail before any byte is written.
    const std::wstring wstrTmp = QZSTD::TemporaryPathOf(m_wstrPath);
    QZTEST::MakeFolder(wstrTmp);
    const std::optional<QZError> error =
        ErrorOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 2)); });
    EXPECT_TRUE(IsError(error, QZSTD::SsErr::MODULE, QZSTD::SsErr::WRITE_FAILED));
    EXPECT_NE(error->GetMessage().find(wstrTmp), std::wstring::npos) << error->what();
    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strBefore);
    EXPECT_TRUE(SameParams(OneInt(L"a", 1), ReadBack(m_wstrPath)));
    QZTEST::RemoveAll(wstrTmp);
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 3));
    EXPECT_TRUE(SameParams(OneInt(L"a", 3), ReadBack(m_wstrPath)));
}

#ifndef _WIN32
TEST_F(SettingsStorageFile, AWriteThatRunsOutOfSpaceMidwayLeavesThePreviousContent)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1));
    const std::string strBefore = QZTEST::ReadFileBytes(m_wstrPath);
    // /dev/full takes the open and fails the write with ENOSPC, as a full disk does.
    const std::string strTmp = QZSTD::WideToUtf8(QZSTD::TemporaryPathOf(m_wstrPath));
    ASSERT_EQ(::symlink("/dev/full", strTmp.c_str()), 0);
    EXPECT_TRUE(IsError(ErrorOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, EveryType()); }),
                        QZSTD::SsErr::MODULE, QZSTD::SsErr::WRITE_FAILED));
    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strBefore);
    EXPECT_FALSE(QZTEST::PathExists(QZSTD::TemporaryPathOf(m_wstrPath))) << "the failed temporary file stays";
}
#endif

struct MalformedCase
{
    const char* szWhat;
    std::string strXml;
    int nCode;
    const wchar_t* szExpected;  // part of the message
};

std::string InSection(const std::string& strBody)
{
    return "<?xml version=\"1.0\"?>\n<settings_storage format=\"1\">\n<product name=\"p\">\n<version "
           "name=\"v\">\n"
           "<section name=\"s\">\n" +
           strBody + "\n</section>\n</version>\n</product>\n</settings_storage>\n";
}

std::string DeeplyNested(int nLevels)
{
    std::string str;
    for (int i = 0; i < nLevels; ++i)
        str += "<value name=\"n\" type=\"PARAMS_T\">";
    for (int i = 0; i < nLevels; ++i)
        str += "</value>";
    return InSection(str);
}

std::vector<MalformedCase> MalformedCases()
{
    using namespace QZSTD::SsErr;
    const std::string strValid = InSection("<value name=\"a\" type=\"INT_T\" value=\"1\"/>");
    return {
        {"not XML", "this is not XML", NOT_XML, L"line 1"},
        {"empty file", "", NOT_XML, L"not well-formed"},
        {"cut short", strValid.substr(0, strValid.size() / 2), NOT_XML, L"not well-formed"},
        {"wrong root", "<settings/>", BAD_CONTENT, L"root element \"settings\""},
        {"two roots", "<settings_storage format=\"1\"/><settings_storage format=\"1\"/>", BAD_CONTENT,
         L"more than one root element"},
        {"no format", "<settings_storage/>", BAD_CONTENT, L"format \"\" is not supported"},
        {"newer format", "<settings_storage format=\"2\"/>", BAD_CONTENT, L"format \"2\" is not supported"},
        {"unknown type", InSection("<value name=\"a\" type=\"FOO_T\" value=\"1\"/>"), BAD_CONTENT,
         L"at line 6: unknown type name \"FOO_T\""},
        {"no type", InSection("<value name=\"a\" value=\"1\"/>"), BAD_CONTENT, L"without a type"},
        {"no name", InSection("<value type=\"INT_T\" value=\"1\"/>"), BAD_CONTENT, L"without a name"},
        {"empty name", InSection("<value name=\"\" type=\"INT_T\" value=\"1\"/>"), BAD_CONTENT,
         L"empty name"},
        {"bad int", InSection("<value name=\"a\" type=\"INT_T\" value=\"12x\"/>"), BAD_CONTENT,
         L"bad INT_T text \"12x\""},
        {"int out of range", InSection("<value name=\"a\" type=\"INT_T\" value=\"2147483648\"/>"),
         BAD_CONTENT, L"bad INT_T text"},
        {"bad long", InSection("<value name=\"a\" type=\"LONG_T\" value=\"9223372036854775808\"/>"),
         BAD_CONTENT, L"bad LONG_T text"},
        {"time below -1", InSection("<value name=\"a\" type=\"DATE_TIME_T\" value=\"-2\"/>"), BAD_CONTENT,
         L"DATE_TIME_T below -1"},
        {"bad bool", InSection("<value name=\"a\" type=\"BOOL_T\" value=\"yes\"/>"), BAD_CONTENT,
         L"bad BOOL_T text \"yes\""},
        {"bad float", InSection("<value name=\"a\" type=\"FLOAT_T\" value=\"1e39\"/>"), BAD_CONTENT,
         L"bad FLOAT_T text"},
        {"bad double", InSection("<value name=\"a\" type=\"DOUBLE_T\" value=\"0.5.5\"/>"), BAD_CONTENT,
         L"bad DOUBLE_T text"},
        {"bad hex", InSection("<value name=\"a\" type=\"BINARY_T\" hex=\"0G\"/>"), BAD_CONTENT,
         L"bad hexadecimal \"0G\""},
        {"odd UTF-16 hex", InSection("<value name=\"a\" type=\"STRING_T\" hex=\"410\"/>"), BAD_CONTENT,
         L"bad STRING_T text"},
        {"binary as text", InSection("<value name=\"a\" type=\"BINARY_T\" value=\"x\"/>"), BAD_CONTENT,
         L"does not belong"},
        {"no payload", InSection("<value name=\"a\" type=\"STRING_T\"/>"), BAD_CONTENT,
         L"without its payload"},
        {"NUL in date", InSection("<value name=\"a\" type=\"DATE_T\" hex=\"4100\"/>"), BAD_CONTENT,
         L"NUL byte"},
        {"duplicate value",
         InSection("<value name=\"a\" type=\"INT_T\" value=\"1\"/>"
                   "<value name=\"a\" type=\"INT_T\" value=\"2\"/>"),
         BAD_CONTENT, L"duplicate value \"a\""},
        {"duplicate section",
         "<settings_storage format=\"1\"><product name=\"p\"><version name=\"v\">"
         "<section name=\"s\"/><section name=\"s\"/></version></product></settings_storage>",
         BAD_CONTENT, L"duplicate section \"s\""},
        {"unexpected element", InSection("<entry name=\"a\"/>"), BAD_CONTENT, L"unexpected element <entry>"},
        {"text in section", InSection("stray text"), BAD_CONTENT, L"unexpected text"},
        {"content in scalar", InSection("<value name=\"a\" type=\"INT_T\" value=\"1\">x</value>"),
         BAD_CONTENT, L"content inside"},
        {"named item",
         InSection(
             "<value name=\"a\" type=\"ARRAY_T\"><item name=\"x\" type=\"INT_T\" value=\"1\"/></value>"),
         BAD_CONTENT, L"array element with a name"},
        {"null scalar",
         InSection("<value name=\"a\" type=\"ARRAY_T\"><item null=\"true\" type=\"INT_T\"/></value>"),
         BAD_CONTENT, L"\"null\" on a value of type INT_T"},
        {"null item with content",
         InSection("<value name=\"a\" type=\"ARRAY_T\"><item null=\"true\" value=\"1\"/></value>"),
         BAD_CONTENT, L"null array element with content"},
        {"null not true", InSection("<value name=\"a\" type=\"PARAMS_T\" null=\"1\"/>"), BAD_CONTENT,
         L"\"null\" must be \"true\""},
        {"too deep", DeeplyNested(QZSTD::SsXml::MAX_DEPTH + 1), BAD_CONTENT, L"nested deeper than 100"},
        {"far too deep", DeeplyNested(50000), BAD_CONTENT, L"nested deeper than 100"},
    };
}

TEST_F(SettingsStorageFile, MalformedFilesAreReportedAndLeftUntouched)
{
    for (const MalformedCase& c : MalformedCases()) {
        SCOPED_TRACE(c.szWhat);
        QZTEST::WriteFileBytes(m_wstrPath, c.strXml);
        const std::optional<QZError> error = ErrorOf([&] { SettingsStorage::OpenReadOnly(m_wstrPath); });
        ASSERT_TRUE(IsError(error, QZSTD::SsErr::MODULE, c.nCode));
        EXPECT_NE(error->GetMessage().find(m_wstrPath), std::wstring::npos) << error->what();
        EXPECT_NE(error->GetMessage().find(c.szExpected), std::wstring::npos) << error->what();
        EXPECT_TRUE(IsError(ErrorOf([&] { SettingsStorage::OpenOrCreate(m_wstrPath); }), QZSTD::SsErr::MODULE,
                            c.nCode));
        EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), c.strXml) << "a malformed storage was overwritten";
        // The in-memory reader says the same, for the fuzz target.
        EXPECT_TRUE(IsError(ErrorOf([&] { SettingsStorage::ParseForTest(c.strXml.data(), c.strXml.size()); }),
                            QZSTD::SsErr::MODULE, c.nCode));
    }
}

TEST_F(SettingsStorageFile, AStorageDamagedAfterOpeningIsNotOverwrittenByAChange)
{
    CAutoPtr<SettingsStorage> pStorage = CreateWithSection();
    const std::string strDamaged = "<settings_storage format=\"1\"><product";
    QZTEST::WriteFileBytes(m_wstrPath, strDamaged);
    EXPECT_TRUE(
        IsError(ErrorOf([&] { pStorage->ReplaceEntries(PRODUCT, VERSION, SECTION, OneInt(L"a", 1)); }),
                QZSTD::SsErr::MODULE, QZSTD::SsErr::NOT_XML));
    EXPECT_TRUE(IsError(ErrorOf([&] { pStorage->ReadSection(PRODUCT, VERSION, SECTION); }),
                        QZSTD::SsErr::MODULE, QZSTD::SsErr::NOT_XML));
    EXPECT_EQ(QZTEST::ReadFileBytes(m_wstrPath), strDamaged);
}

TEST_F(SettingsStorageFile, HandWrittenFileInTheDocumentedLayoutReads)
{
    QZTEST::WriteFileBytes(m_wstrPath, R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- edited by hand -->
<settings_storage format="1">
    <product name="1103">
        <version name="1.0.0.0">
            <section name="global">
                <!-- comments are ignored anywhere -->
                <value name="QZNAG_SRVID" type="STRING_T" value="srv-42"/>
                <value name="multi_line" type="STRING_T" hex="61000A006200"/>
                <value name="retries" type="INT_T" value="3"/>
                <value name="ratio" type="DOUBLE_T" value="-0"/>
                <value name="installed" type="DATE_TIME_T" value="-1"/>
                <value name="blob" type="BINARY_T" hex="00ff"/>
                <value name="opts" type="PARAMS_T">
                    <value name="on" type="BOOL_T" value="true"/>
                </value>
                <value name="none" type="PARAMS_T" null="true"/>
                <value name="list" type="ARRAY_T">
                    <item type="LONG_T" value="7"/>
                    <item null="true"/>
                    <item type="PARAMS_T" null="true"/>
                </value>
                <value name_hex="74000900" type="DATE_T" hex="E97465"/>
            </section>
        </version>
    </product>
</settings_storage>
)");
    CAutoPtr<Params> p = ReadBack(m_wstrPath);
    EXPECT_EQ(QZPAR::GetStringValue(p, L"QZNAG_SRVID"), L"srv-42");
    EXPECT_EQ(QZPAR::GetStringValue(p, L"multi_line"), L"a\nb");
    EXPECT_EQ(QZPAR::GetIntValue(p, L"retries"), 3);
    EXPECT_TRUE(std::signbit(QZPAR::GetDoubleValue(p, L"ratio")));
    EXPECT_EQ(QZPAR::GetDateTimeValue(p, L"installed"), -1);
    EXPECT_EQ(QZPAR::GetBinaryValue(p, L"blob"), (std::vector<uint8_t>{0x00, 0xFF}));
    EXPECT_TRUE(QZPAR::GetBoolValue(QZPAR::GetParamsValue(p, L"opts"), L"on"));
    EXPECT_EQ(QZPAR::GetParamsValue(p, L"none").Get(), nullptr);
    CAutoPtr<QZPAR::ArrayValue> pList = QZPAR::GetArrayValue(p, L"list");
    ASSERT_EQ(pList->GetSize(), 3u);
    CAutoPtr<QZPAR::Value> pNullElement;
    pList->GetAt(1, &pNullElement);
    EXPECT_EQ(pNullElement.Get(), nullptr);
    CAutoPtr<QZPAR::Value> pNullParams;
    pList->GetAt(2, &pNullParams);
    ASSERT_NE(pNullParams.Get(), nullptr);
    EXPECT_EQ(QZPAR::GetParamsValue(pNullParams).Get(), nullptr);
    EXPECT_EQ(QZPAR::GetDateValue(p, L"t\t"), "\xE9te");
}

// ---- the in-memory reader for fuzzing ----

TEST(SettingsStorageParseForTest, CanonicalTextReadsBackToItself)
{
    const std::string strInput = InSection(
        "<value name=\"b\" type=\"FLOAT_T\" value=\"1e0\"/>\n"
        "<value name=\"a\" type=\"STRING_T\" hex=\"41004200\"/>\n"
        "<value name=\"c\" type=\"BINARY_T\" hex=\"abcd\"/>");
    const std::string strCanonical = SettingsStorage::ParseForTest(strInput.data(), strInput.size());
    EXPECT_EQ(SettingsStorage::ParseForTest(strCanonical.data(), strCanonical.size()), strCanonical);
    // Written in name order, the safe string as text, numbers in their shortest form.
    const size_t nA = strCanonical.find("name=\"a\" type=\"STRING_T\" value=\"AB\"");
    const size_t nB = strCanonical.find("name=\"b\" type=\"FLOAT_T\" value=\"1\"");
    const size_t nC = strCanonical.find("name=\"c\" type=\"BINARY_T\" hex=\"ABCD\"");
    EXPECT_NE(nA, std::string::npos) << strCanonical;
    EXPECT_LT(nA, nB);
    EXPECT_LT(nB, nC);
    EXPECT_NE(nC, std::string::npos) << strCanonical;
    EXPECT_TRUE(IsError(ErrorOf([] { SettingsStorage::ParseForTest(nullptr, 0); }), QZSTD::SsErr::MODULE,
                        QZSTD::SsErr::NOT_XML));
}

// ---- the management agent's local storage ----

class SettingsStorageLocalPath : public ::testing::Test
{
protected:
    void SetUp() override { m_wstrSaved = QZTEST::GetEnv(QZSTD::LOCAL_SS_PATH_ENV); }
    void TearDown() override { QZTEST::SetEnv(QZSTD::LOCAL_SS_PATH_ENV, m_wstrSaved); }
    std::wstring m_wstrSaved;
};

TEST_F(SettingsStorageLocalPath, DefaultsToTheMachineWideDataFolder)
{
    QZTEST::SetEnv(QZSTD::LOCAL_SS_PATH_ENV, L"");
    const std::wstring wstrPath = QZSTD::GetLocalSettingsStoragePath();
#ifdef _WIN32
    EXPECT_NE(wstrPath.find(L"\\QZ\\SettingsStorage\\local_ss.xml"), std::wstring::npos);
    EXPECT_GT(wstrPath.find(L"\\QZ"), 0u) << "needs the application-data folder in front";
#else
    EXPECT_EQ(wstrPath, L"/var/opt/qz/settingsstorage/local_ss.xml");
#endif
}

TEST_F(SettingsStorageLocalPath, EnvironmentOverrideLetsTheServerIdBeReadFromATestFile)
{
    QZTEST::TempFolder folder;
    const std::wstring wstrPath = folder.Join(L"agent/local_ss.xml");
    QZTEST::SetEnv(QZSTD::LOCAL_SS_PATH_ENV, wstrPath);
    ASSERT_EQ(QZSTD::GetLocalSettingsStoragePath(), wstrPath);

    // What the management agent does.
    CAutoPtr<SettingsStorage> pAgent = SettingsStorage::OpenOrCreate(QZSTD::GetLocalSettingsStoragePath());
    pAgent->CreateSection(L"1103", L"1.0.0.0", L"global");
    CAutoPtr<Params> pServer = QZPAR::CreateParams();
    QZPAR::SetStringValue(pServer, L"QZNAG_SRVID", L"{5E1F0C2A-77D3-4A53-9F1B-0C6D1A2B3C4D}");
    pAgent->ReplaceEntries(L"1103", L"1.0.0.0", L"global", pServer);

    // What the installation agent reads.
    CAutoPtr<Params> pGlobal = SettingsStorage::OpenReadOnly(QZSTD::GetLocalSettingsStoragePath())
                                   ->ReadSection(L"1103", L"1.0.0.0", L"global");
    EXPECT_EQ(QZPAR::GetStringValue(pGlobal, L"QZNAG_SRVID", L""), L"{5E1F0C2A-77D3-4A53-9F1B-0C6D1A2B3C4D}");
}

}  // namespace

// Writes the starting corpora of the fuzz targets: fuzz_seeds DIR creates DIR/<target>/<seed> files.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "std/par/paramshelpers.h"
#include "std/par/serialize.h"

namespace {

using QZSTD::CAutoPtr;

void WriteSeed(const std::filesystem::path& dir, const std::string& strName, const std::vector<uint8_t>& vec)
{
    std::filesystem::create_directories(dir);
    std::ofstream f(dir / strName, std::ios::binary);
    f.write(reinterpret_cast<const char*>(vec.data()), static_cast<std::streamsize>(vec.size()));
}

void WriteText(const std::filesystem::path& dir, const std::string& strName, const std::string& str)
{
    WriteSeed(dir, strName, std::vector<uint8_t>(str.begin(), str.end()));
}

// Text seeds: command lines, "$HEX_" values, a settings storage and ini files as the agent meets them.
void WriteTextSeeds(const std::filesystem::path& root)
{
    WriteText(root / "fuzz_cmdline", "agent",
              "\"C:\\Temp\\pkg\\qzriwrap.exe\" TASK_ID=12 /s \"a b\" QZRI$ID=x");
    WriteText(root / "fuzz_cmdline", "escapes", "prog a\\\\\"b c\\\"d \"e\"\"f\" \"\" \\\\");
    WriteText(root / "fuzz_hex", "a_b", "610020006200");
    WriteText(root / "fuzz_hex", "surrogates", "3DD800DE");
    WriteText(root / "fuzz_settings_storage", "small",
              "<?xml version=\"1.0\"?>\n<settings_storage format=\"1\"><product name=\"1103\">"
              "<version name=\"1.0.0.0\"><section name=\"global\">"
              "<value name=\"QZNAG_SRVID\" type=\"STRING_T\" value=\"srv-1\"/>"
              "<value name=\"n\" type=\"INT_T\" value=\"5\"/>"
              "<value name=\"p\" type=\"PARAMS_T\"><value name=\"b\" type=\"BOOL_T\" value=\"true\"/></value>"
              "<value name=\"a\" type=\"ARRAY_T\"><item type=\"DOUBLE_T\" value=\"1.5\"/><item "
              "null=\"true\"/></value>"
              "</section></version></product></settings_storage>\n");
    WriteText(root / "fuzz_profile", "qzriwrp",
              "[Setup]\r\naction=1\r\nstart_counter=4\r\ncmdline=$HEX_610020006200\r\n; note\r\n[Other]\r\nk "
              "= \" v \"\r\n");
}

// The ini reader (first byte: 0 ANSI, 1 UTF-8) and the package description ("\n--\n" before the companion).
void WriteIniSeeds(const std::filesystem::path& root)
{
    WriteText(root / "fuzz_ini", "qpd_ansi",
              std::string(1, '\0') +
                  "[Setup]\r\nExecutable=bin\\setup.exe\r\nExecutableRelPath=..\\x.exe\r\n; comment\r\n"
                  "[Product]\r\nName = \" caf\xE9 \"\r\nAdaptedProduct=1\r\n[ a[b]c ]\r\nk==v\r\n");
    WriteText(root / "fuzz_ini", "utf8_bom",
              std::string(1, '\1') +
                  "\xEF\xBB\xBF[Properties]\nKey=a.key\n[cmd_proc_rslt]\nresult=-3\nready=1\n"
                  "[\xD0\x96]\n\tk\t=\t\"\"\nk=\"\nno equals\n[]\n=v");
    WriteText(root / "fuzz_qpd", "with_companion",
              "[Setup]\nExecutable=setup.exe\nExecutableRelPath=bin\\setup.exe\n[Product]\nName=ansi\n"
              "AdaptedProduct=2\n\n--\n[product]\nNAME=\xC3\xA9\nAdaptedProduct=x7\n");
    // A companion name outside ASCII once made the path conversion throw.
    WriteText(
        root / "fuzz_qpd", "non_ascii_companion",
        "[Setup]\nutf8qpd=pkg\xBA\xE9.qud\nExecutableRelPath=\xE9\\setup.exe\n\n--\n[Product]\nName=\n");
    WriteText(root / "fuzz_qpd", "named_companion",
              "[Setup]\nutf8qpd=pkg.qud\n[Product]\nName=executable_package\n\n--\n[Product]\nName=\n");
}

CAutoPtr<QZPAR::Params> EveryType()
{
    CAutoPtr<QZPAR::Params> p = QZPAR::CreateParams();
    p->ReplaceValue(L"s", QZPAR::CreateString(L"text \u00e9"));
    p->ReplaceValue(L"e", QZPAR::CreateString(L""));
    p->ReplaceValue(L"b", QZPAR::CreateBool(true));
    p->ReplaceValue(L"i", QZPAR::CreateInt(-5));
    p->ReplaceValue(L"l", QZPAR::CreateLong(1LL << 40));
    p->ReplaceValue(L"t", QZPAR::CreateDateTime(-1));
    p->ReplaceValue(L"d", QZPAR::CreateDate("2026-11-22"));
    p->ReplaceValue(L"x", QZPAR::CreateBinary("\x01\x02\x03", 3));
    p->ReplaceValue(L"f", QZPAR::CreateFloat(1.5f));
    p->ReplaceValue(L"g", QZPAR::CreateDouble(std::numeric_limits<double>::quiet_NaN()));
    p->ReplaceValue(L"n", QZPAR::CreateParamsValue(nullptr));
    CAutoPtr<QZPAR::ArrayValue> pArray = QZPAR::CreateArray(3);
    pArray->SetAt(0, QZPAR::CreateInt(1));
    CAutoPtr<QZPAR::Params> pNested = QZPAR::CreateParams();
    pNested->ReplaceValue(L"inner", QZPAR::CreateString(L"v"));
    pArray->SetAt(2, QZPAR::CreateParamsValue(pNested));
    p->ReplaceValue(L"a", pArray);
    p->ReplaceValue(L"p", QZPAR::CreateParamsValue(pNested));
    return p;
}

}  // namespace

// A zip with a file at the top and one in a folder, stored without compression.
void WriteArchiveSeeds(const std::filesystem::path& root)
{
    WriteText(root / "fuzz_paramsjson", "every_kind",
              "{\"a\":{\"array\":[{\"str\":\"s\"},null,{\"params\":{\"n\":{\"int\":1}}}]},"
              "\"b\":{\"bin\":\"AAF/\"},\"d\":{\"double\":\"NaN\"},\"f\":{\"float\":0.5},"
              "\"l\":{\"long\":\"-7\"},\"t\":{\"date\":\"2024\"},\"x\":{\"dt\":-1},\"y\":{\"bool\":true}}");
    WriteSeed(
        root / "fuzz_archive", "two_files",
        {0x50, 0x4B, 0x03, 0x04, 0x14, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x21, 0x50, 0xAC, 0x2A, 0x93,
         0xD8, 0x02, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x61, 0x2E, 0x74, 0x78,
         0x74, 0x68, 0x69, 0x50, 0x4B, 0x03, 0x04, 0x14, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x21, 0x50,
         0x89, 0xAC, 0x29, 0x62, 0x02, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x64,
         0x2F, 0x62, 0x2E, 0x74, 0x78, 0x74, 0x79, 0x6F, 0x50, 0x4B, 0x01, 0x02, 0x14, 0x03, 0x14, 0x00, 0x00,
         0x00, 0x00, 0x00, 0x00, 0x00, 0x21, 0x50, 0xAC, 0x2A, 0x93, 0xD8, 0x02, 0x00, 0x00, 0x00, 0x02, 0x00,
         0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x01, 0x00,
         0x00, 0x00, 0x00, 0x61, 0x2E, 0x74, 0x78, 0x74, 0x50, 0x4B, 0x01, 0x02, 0x14, 0x03, 0x14, 0x00, 0x00,
         0x00, 0x00, 0x00, 0x00, 0x00, 0x21, 0x50, 0x89, 0xAC, 0x29, 0x62, 0x02, 0x00, 0x00, 0x00, 0x02, 0x00,
         0x00, 0x00, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x01, 0x25,
         0x00, 0x00, 0x00, 0x64, 0x2F, 0x62, 0x2E, 0x74, 0x78, 0x74, 0x50, 0x4B, 0x05, 0x06, 0x00, 0x00, 0x00,
         0x00, 0x02, 0x00, 0x02, 0x00, 0x68, 0x00, 0x00, 0x00, 0x4C, 0x00, 0x00, 0x00, 0x00, 0x00});
}

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seeds DIR\n");
        return 2;
    }
    WriteTextSeeds(argv[1]);
    WriteArchiveSeeds(argv[1]);
    WriteIniSeeds(argv[1]);
    const std::filesystem::path dir = std::filesystem::path(argv[1]) / "fuzz_params_reader";
    std::vector<uint8_t> vec;
    QZPAR::SerializeParams(QZPAR::CreateParams(), vec);
    WriteSeed(dir, "empty", vec);
    vec.clear();
    QZPAR::SerializeParams(EveryType(), vec);
    WriteSeed(dir, "every_type", vec);
    return 0;
}

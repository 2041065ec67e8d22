// The agent's ini reader against the grammar's std::wregex reference and against inih, each parsing the
// same generated 1 MiB ini of package-description content in the same process. inih builds a map of
// the same shape as our tree, so that all three do the whole job: split, trim, store.
#include <benchmark/benchmark.h>
#include <ini.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_map>

#include "common/ansicp.h"
#include "common/inifileparser.h"
#include "tests/common/inifileparser_reference.h"

namespace {

// Many sections of realistic keys, long values (paths, command lines, quoted texts), comments, blank
// lines and a few junk lines; CRLF line ends as written on Windows. Values stay under inih's default
// line limit of 200 bytes.
const std::string& IniText()
{
    static const std::string s_str = [] {
        std::string str;
        uint32_t nSeed = 12345;
        auto next = [&] {
            nSeed = nSeed * 1103515245u + 12345u;
            return (nSeed >> 16) & 0x7FFF;
        };
        char buf[256];
        for (int nSection = 0; str.size() < (1u << 20); ++nSection) {
            std::snprintf(buf, sizeof buf, "[Component_%d]\r\n", nSection);
            str += buf;
            const int nKeys = 5 + static_cast<int>(next() % 20);
            for (int nKey = 0; nKey < nKeys; ++nKey) {
                switch (next() % 8) {
                    case 0:
                        std::snprintf(buf, sizeof buf, "Executable = bin\\x86\\setup_%u.exe\r\n", next());
                        break;
                    case 1:
                        std::snprintf(
                            buf, sizeof buf,
                            "CmdLine=\"/s /v\\\"/qn REBOOT=ReallySuppress INSTALLDIR=C:\\Program Files\\"
                            "Vendor\\Product %u\\\" /l*v %%TEMP%%\\install.log\"\r\n",
                            next());
                        break;
                    case 2:
                        std::snprintf(buf, sizeof buf, "; comment line %u about the next key\r\n", next());
                        break;
                    case 3:
                        std::snprintf(buf, sizeof buf, "\r\n");
                        break;
                    case 4:
                        std::snprintf(buf, sizeof buf, "junk line without equals sign %u\r\n", next());
                        break;
                    default:
                        std::snprintf(buf, sizeof buf,
                                      "  Key_%d\t=\tvalue %u with several words and a=b inside  \r\n", nKey,
                                      next());
                        break;
                }
                str += buf;
            }
        }
        return str;
    }();
    return s_str;
}

// Parsing into the reader's own index, which is what the agent's lookups use (the Params tree is built
// only when asked for: trace dump, qzpkg).
void BM_IniParse(benchmark::State& state)
{
    const std::string& strText = IniText();
    QZSTD::CAutoPtr<QZRI::IniFileParser> pParser = QZRI::IniFileParser::Create();
    for (auto _ : state) {
        pParser->ParseBytes(strText, nullptr, false);
        benchmark::DoNotOptimize(pParser->GetString(L"Component_7", L"Key_3", L""));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * strText.size()));
}
BENCHMARK(BM_IniParse)->Unit(benchmark::kMillisecond);

// The same, also building the Params tree as the wregex reference does.
void BM_IniParseTree(benchmark::State& state)
{
    const std::string& strText = IniText();
    QZSTD::CAutoPtr<QZRI::IniFileParser> pParser = QZRI::IniFileParser::Create();
    for (auto _ : state) {
        pParser->ParseBytes(strText, nullptr, false);
        benchmark::DoNotOptimize(pParser->GetParams().Get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * strText.size()));
}
BENCHMARK(BM_IniParseTree)->Unit(benchmark::kMillisecond);

void BM_IniParseUtf8(benchmark::State& state)
{
    const std::string& strText = IniText();
    QZSTD::CAutoPtr<QZRI::IniFileParser> pParser = QZRI::IniFileParser::Create();
    for (auto _ : state) {
        pParser->ParseBytes(strText, nullptr, true);
        benchmark::DoNotOptimize(pParser->GetString(L"Component_7", L"Key_3", L""));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * strText.size()));
}
BENCHMARK(BM_IniParseUtf8)->Unit(benchmark::kMillisecond);

void BM_IniParseWregex(benchmark::State& state)
{
    const std::string& strText = IniText();
    const QZTEST::RegexIniReference reference;
    for (auto _ : state) {
        QZSTD::CAutoPtr<QZPAR::Params> pTree = reference.Parse(QZRI::AnsiToWide(strText));
        benchmark::DoNotOptimize(pTree.Get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * strText.size()));
}
BENCHMARK(BM_IniParseWregex)->Unit(benchmark::kMillisecond);

using InihTree = std::unordered_map<std::string, std::unordered_map<std::string, std::string>>;

int InihHandler(void* pUser, const char* szSection, const char* szName, const char* szValue)
{
    (*static_cast<InihTree*>(pUser))[szSection][szName] = szValue;
    return 1;
}

void BM_IniParseInih(benchmark::State& state)
{
    const std::string& strText = IniText();
    for (auto _ : state) {
        InihTree tree;
        ini_parse_string(strText.c_str(), &InihHandler, &tree);
        benchmark::DoNotOptimize(tree.size());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * strText.size()));
}
BENCHMARK(BM_IniParseInih)->Unit(benchmark::kMillisecond);

}  // namespace

// The package description on arbitrary qpd and companion contents (the input split at its first
// "\n--\n"), read through an in-memory files provider. Reading must not fail; every value of either
// file must be found with the companion first; GetInt must never raise (the qpd file's reading allows
// absence).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/qpdfile.h"
#include "fuzz/initree.h"
#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "tests/testutil/memoryfiles.h"

namespace {

using QZFUZZ::Check;

void CheckValuesOf(QZRI::IniFileParser* pParser, QZRI::QpdFile* pQpd, bool bCompanion)
{
    QZFUZZ::ForEachIniValue(pParser, [&](const std::wstring& wstrSection, const std::wstring& wstrKey,
                                         const std::wstring& wstrOwn) {
        QZRI::QpdValueOrigin eOrigin = QZRI::QpdValueOrigin::ABSENT;
        const std::wstring wstrValue = pQpd->GetString(wstrSection, wstrKey, L"", &eOrigin);
        if (wstrOwn == QZRI::c_szAbsentSentinel)
            return;
        if (bCompanion) {
            Check(eOrigin == QZRI::QpdValueOrigin::COMPANION && wstrValue == wstrOwn);
        } else {
            Check(eOrigin != QZRI::QpdValueOrigin::ABSENT);
            if (eOrigin == QZRI::QpdValueOrigin::QPD)
                Check(wstrValue == wstrOwn);
        }
        pQpd->GetInt(wstrSection, wstrKey, 0);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    const std::string strInput(reinterpret_cast<const char*>(pData), nSize);
    const size_t nSplit = strInput.find("\n--\n");
    auto pFiles = QZTEST::MemoryFiles::Create();
    pFiles->m_mapFiles[L"pkg.qpd"] = strInput.substr(0, nSplit);
    if (nSplit != std::string::npos)
        pFiles->m_mapFiles[L"pkg.qud"] = strInput.substr(nSplit + 4);
    QZSTD::CAutoPtr<QZRI::QpdFile> pQpd = QZRI::QpdFile::Create(L"pkg.qpd", pFiles.Get());
    CheckValuesOf(pQpd->GetUtf8Parser(), pQpd.Get(), true);
    CheckValuesOf(pQpd->GetAnsiParser(), pQpd.Get(), false);
    pQpd->GetInt(L"Product", L"AdaptedProduct", 0);
    pQpd->GetString(L"Setup", L"Executable", L"");
    return 0;
}

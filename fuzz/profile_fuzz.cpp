// The Linux private-profile module on arbitrary file content: reads of keys named by the input must
// not fail, and a key written into the damaged file must read back as written while the file's other
// sections keep their values.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "std/profile.h"
#include "std/strconv.h"

namespace {

const std::wstring& FuzzFile()
{
    static const std::wstring wstr = [] {
        const char* szDir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        return QZSTD::Utf8ToWide(std::string(szDir) + "/qz_profile_fuzz_" + std::to_string(getpid()) +
                                 ".ini");
    }();
    return wstr;
}

// A short name taken from the input, without the characters no name can hold.
std::wstring NameFrom(const uint8_t* pData, size_t nSize, size_t nAt)
{
    std::wstring wstr;
    for (size_t i = nAt; i < nSize && wstr.size() < 6; ++i) {
        const char c = static_cast<char>(pData[i]);
        if (c > ' ' && c < 127 && c != '=' && c != '[' && c != ']' && c != ';')
            wstr += static_cast<wchar_t>(c);
    }
    return wstr.empty() ? L"s" : wstr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    const std::wstring& wstrFile = FuzzFile();
    const std::string strPath = QZSTD::WideToUtf8(wstrFile);
    FILE* f = std::fopen(strPath.c_str(), "wb");
    if (!f)
        return 0;
    std::fwrite(pData, 1, nSize, f);
    std::fclose(f);

    const std::wstring wstrSection = NameFrom(pData, nSize, nSize / 3);
    const std::wstring wstrKey = NameFrom(pData, nSize, nSize / 2);
    const std::wstring wstrOther = QZSTD::GetProfileString(wstrFile, L"Setup", L"action", L"", 4096);
    (void)QZSTD::GetProfileInt(wstrFile, wstrSection.c_str(), wstrKey.c_str(), -7);

    const std::wstring wstrValue = L"v" + std::to_wstring(nSize);
    if (QZSTD::WriteProfileString(wstrFile, wstrSection.c_str(), wstrKey.c_str(), wstrValue.c_str())) {
        if (QZSTD::GetProfileString(wstrFile, wstrSection.c_str(), wstrKey.c_str(), L"", 4096) != wstrValue)
            std::abort();
        // Section names match without regard to case, so only an unrelated section must be unchanged.
        const bool bSameSection =
            wstrSection.size() == 5 &&
            QZSTD::WideToUtf8(wstrSection).find_first_not_of("SETUPsetup") == std::string::npos;
        if (!bSameSection && QZSTD::GetProfileString(wstrFile, L"Setup", L"action", L"", 4096) != wstrOther)
            std::abort();
    }
    std::remove(strPath.c_str());
    return 0;
}

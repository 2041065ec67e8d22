// Parsing a setup command line into Windows Installer properties, and the REBOOT choice.
#include "common/msisetup/msisetupparameter.h"

namespace QZRI {
namespace {

bool IsBlank(wchar_t c)
{
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}

bool IsNameChar(wchar_t c, bool bFirst)
{
    const bool bLetter = (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z') || c == L'_';
    return bLetter || (!bFirst && ((c >= L'0' && c <= L'9') || c == L'.'));
}

// Reads a value from wstr[n]: quoted (with "" for a quote) or up to the next blank.
std::wstring ReadValue(const std::wstring& wstr, size_t& n)
{
    std::wstring wstrValue;
    if (n < wstr.size() && wstr[n] == L'"') {
        for (++n; n < wstr.size(); ++n) {
            if (wstr[n] != L'"') {
                wstrValue += wstr[n];
            } else if (n + 1 < wstr.size() && wstr[n + 1] == L'"') {
                wstrValue += L'"';
                ++n;
            } else {
                ++n;
                break;
            }
        }
        return wstrValue;
    }
    for (; n < wstr.size() && !IsBlank(wstr[n]); ++n)
        wstrValue += wstr[n];
    return wstrValue;
}

// Moves past a word that is no property, keeping quoted parts whole.
void SkipWord(const std::wstring& wstr, size_t& n)
{
    bool bQuoted = false;
    for (; n < wstr.size() && (bQuoted || !IsBlank(wstr[n])); ++n) {
        if (wstr[n] == L'"')
            bQuoted = !bQuoted;
    }
}

}  // namespace

std::vector<MsiSetupParameter> ParseMsiProperties(const std::wstring& wstrCmdLine)
{
    std::vector<MsiSetupParameter> vecParams;
    size_t n = 0;
    while (n < wstrCmdLine.size()) {
        if (IsBlank(wstrCmdLine[n])) {
            ++n;
            continue;
        }
        size_t nEnd = n;
        while (nEnd < wstrCmdLine.size() && IsNameChar(wstrCmdLine[nEnd], nEnd == n))
            ++nEnd;
        if (nEnd == n || nEnd >= wstrCmdLine.size() || wstrCmdLine[nEnd] != L'=') {
            SkipWord(wstrCmdLine, n);
            continue;
        }
        MsiSetupParameter param;
        param.m_wstrName = wstrCmdLine.substr(n, nEnd - n);
        n = nEnd + 1;
        param.m_wstrValue = ReadValue(wstrCmdLine, n);
        vecParams.push_back(std::move(param));
    }
    return vecParams;
}

std::wstring ChooseRebootValue(const std::wstring& wstrCmdLine)
{
    const auto Lacks = [&](const wchar_t* szOption) {
        return wstrCmdLine.find(szOption) == std::wstring::npos;
    };
    if (Lacks(L"/norestart"))
        return L"ReallySuppress";
    if (Lacks(L"/promptrestart"))
        return L"Suppress";
    if (Lacks(L"/forcerestart"))
        return L"Force";
    return std::wstring();
}

void AppendMsiParametersWithReboot(const std::wstring& wstrCmdLine, std::vector<MsiSetupParameter>& vecParams)
{
    for (MsiSetupParameter& param : ParseMsiProperties(wstrCmdLine))
        vecParams.push_back(std::move(param));
    const std::wstring wstrReboot = ChooseRebootValue(wstrCmdLine);
    if (!wstrReboot.empty())
        vecParams.push_back(MsiSetupParameter{L"REBOOT", wstrReboot, 1});
}

}  // namespace QZRI

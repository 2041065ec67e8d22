// Private-profile module for systems without the Win32 functions: ini files as UTF-8 text, read and
// changed line by line with the matching rules of GetPrivateProfileStringW / WritePrivateProfileStringW.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "std/profile.h"
#include "std/strconv.h"

namespace QZSTD {
namespace {

constexpr std::string_view UTF8_BOM = "\xEF\xBB\xBF";
constexpr size_t NPOS = std::string::npos;
// GetPrivateProfileIntW reads the value into a buffer of this many characters before converting it.
constexpr size_t INT_BUF_CHARS = 30;

// The file as lines without their '\n'. Lines of a CRLF file keep their '\r', so that untouched lines
// are written back byte for byte; new lines are stored with a '\r' and so get CRLF.
struct IniText
{
    bool bBom = false;
    std::vector<std::string> vecLines;
};

// Where a section and a key are: the header line, the first line after the section, the key line.
struct IniPos
{
    size_t nHeader = NPOS;
    size_t nEnd = NPOS;
    size_t nKey = NPOS;
};

enum class ReadResult
{
    OK,
    MISSING,
    FAILED,
};

// Serialises the read-modify-write of WriteProfileString within the process. Never destroyed.
std::mutex& IniMutex()
{
    static std::mutex* p = new std::mutex;
    return *p;
}

// The blanks of the Win32 ini reader, ^Z (DOS end of file) included.
bool IsIniBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f' || c == '\x1a';
}

std::string_view Trim(std::string_view sv)
{
    while (!sv.empty() && IsIniBlank(sv.front()))
        sv.remove_prefix(1);
    while (!sv.empty() && IsIniBlank(sv.back()))
        sv.remove_suffix(1);
    return sv;
}

char FoldAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// UTF-8 bytes compared with ASCII case folding: bytes of multi-byte sequences are never ASCII letters.
bool EqualNoCase(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (FoldAscii(a[i]) != FoldAscii(b[i]))
            return false;
    return true;
}

// "[name]": blanks around and inside the brackets are ignored; the last ']' closes the name.
bool ParseSection(std::string_view svLine, std::string_view& svName)
{
    svLine = Trim(svLine);
    if (svLine.empty() || svLine.front() != '[')
        return false;
    const size_t nClose = svLine.rfind(']');
    if (nClose == NPOS)
        return false;
    svName = Trim(svLine.substr(1, nClose - 1));
    return true;
}

// "key = value"; a line without '=' is not a key.
bool ParseKey(std::string_view svLine, std::string_view& svKey, std::string_view& svValue)
{
    const size_t nEq = svLine.find('=');
    if (nEq == NPOS)
        return false;
    svKey = Trim(svLine.substr(0, nEq));
    svValue = Trim(svLine.substr(nEq + 1));
    return true;
}

bool IsSectionLine(const std::string& strLine)
{
    std::string_view svName;
    return ParseSection(strLine, svName);
}

size_t FindKey(const IniText& ini, size_t nFrom, size_t nEnd, std::string_view svKey)
{
    for (size_t n = nFrom; n < nEnd; ++n) {
        std::string_view svName, svValue;
        if (ParseKey(ini.vecLines[n], svName, svValue) && EqualNoCase(svName, svKey))
            return n;
    }
    return NPOS;
}

// The first section of that name and, when svKey is given, its first key of that name.
IniPos Locate(const IniText& ini, std::string_view svSection, const std::string_view* pKey)
{
    IniPos pos;
    const std::vector<std::string>& vec = ini.vecLines;
    for (size_t n = 0; n < vec.size() && pos.nHeader == NPOS; ++n) {
        std::string_view svName;
        if (ParseSection(vec[n], svName) && EqualNoCase(svName, svSection))
            pos.nHeader = n;
    }
    if (pos.nHeader == NPOS)
        return pos;
    pos.nEnd = pos.nHeader + 1;
    while (pos.nEnd < vec.size() && !IsSectionLine(vec[pos.nEnd]))
        ++pos.nEnd;
    if (pKey)
        pos.nKey = FindKey(ini, pos.nHeader + 1, pos.nEnd, *pKey);
    return pos;
}

void SplitLines(std::string_view svData, IniText& ini)
{
    if (svData.substr(0, UTF8_BOM.size()) == UTF8_BOM) {
        ini.bBom = true;
        svData.remove_prefix(UTF8_BOM.size());
    }
    while (!svData.empty()) {
        const size_t nEnd = svData.find('\n');
        std::string strLine(svData.substr(0, nEnd));
        if (nEnd == NPOS) {
            // The unterminated last line: it gets a CRLF when the file is written again.
            if (strLine.back() != '\r')
                strLine += '\r';
            ini.vecLines.push_back(std::move(strLine));
            return;
        }
        ini.vecLines.push_back(std::move(strLine));
        svData.remove_prefix(nEnd + 1);
    }
}

ReadResult ReadIni(const std::string& strPath, IniText& ini)
{
    std::FILE* pFile = std::fopen(strPath.c_str(), "rbe");
    if (!pFile)
        return (errno == ENOENT || errno == ENOTDIR) ? ReadResult::MISSING : ReadResult::FAILED;
    std::string strData;
    char buf[16384];
    size_t n = 0;
    while ((n = std::fread(buf, 1, sizeof buf, pFile)) > 0)
        strData.append(buf, n);
    const bool bFailed = std::ferror(pFile) != 0;
    std::fclose(pFile);
    if (bFailed)
        return ReadResult::FAILED;
    SplitLines(strData, ini);
    return ReadResult::OK;
}

bool WriteAll(int fd, const std::string& strData)
{
    size_t nDone = 0;
    while (nDone < strData.size()) {
        const ssize_t n = write(fd, strData.data() + nDone, strData.size() - nDone);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        nDone += static_cast<size_t>(n);
    }
    return true;
}

// The replacement keeps the permissions of the file it replaces; a new file gets 0666 less the umask.
bool KeepMode(int fd, const std::string& strPath)
{
    struct stat st = {};
    if (stat(strPath.c_str(), &st) != 0)
        return errno == ENOENT;
    return fchmod(fd, st.st_mode & 07777) == 0;
}

std::string TempPathBeside(const std::string& strPath)
{
    static std::atomic<unsigned> s_nSeq{0};
    return strPath + ".~qz" + std::to_string(getpid()) + "_" + std::to_string(s_nSeq++);
}

// Writes a temporary file beside the target, syncs it and renames it over the target: a crash leaves
// either the old or the new content, never a half-written file.
bool WriteIniAtomically(const std::string& strPath, const IniText& ini)
{
    std::string strData(ini.bBom ? UTF8_BOM : std::string_view());
    for (const std::string& strLine : ini.vecLines) {
        strData += strLine;
        strData += '\n';
    }
    for (int nTry = 0; nTry < 16; ++nTry) {
        const std::string strTemp = TempPathBeside(strPath);
        const int fd = open(strTemp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && errno == EEXIST)
            continue;
        if (fd < 0)
            return false;
        bool bOk = KeepMode(fd, strPath) && WriteAll(fd, strData) && fsync(fd) == 0;
        bOk = close(fd) == 0 && bOk;
        if (bOk && std::rename(strTemp.c_str(), strPath.c_str()) == 0)
            return true;
        unlink(strTemp.c_str());
        return false;
    }
    return false;
}

std::string_view StripQuotes(std::string_view sv)
{
    if (sv.size() >= 2 && (sv.front() == '"' || sv.front() == '\'') && sv.back() == sv.front())
        return sv.substr(1, sv.size() - 2);
    return sv;
}

bool FindValue(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
               std::wstring& wstrValue)
{
    IniText ini;
    if (ReadIni(WideToUtf8(wstrFile), ini) != ReadResult::OK)
        return false;
    const std::string strKey = WideToUtf8(szKey);
    const std::string_view svKey = Trim(strKey);
    const IniPos pos = Locate(ini, Trim(WideToUtf8(szSection)), &svKey);
    std::string_view svName, svValue;
    if (pos.nKey == NPOS || !ParseKey(ini.vecLines[pos.nKey], svName, svValue))
        return false;
    wstrValue = Utf8ToWide(StripQuotes(svValue));
    return true;
}

std::wstring DefaultValue(const wchar_t* szDefault)
{
    std::wstring wstr = szDefault ? szDefault : L"";
    while (!wstr.empty() && wstr.back() == L' ')
        wstr.pop_back();
    return wstr;
}

// "\r" when the line had a CRLF (or is new), "" when it had a bare LF.
std::string LineEndOf(const std::string& strLine)
{
    return (!strLine.empty() && strLine.back() != '\r') ? std::string() : std::string("\r");
}

bool DeleteSection(IniText& ini, std::string_view svSection)
{
    const IniPos pos = Locate(ini, svSection, nullptr);
    if (pos.nHeader == NPOS)
        return false;
    ini.vecLines.erase(ini.vecLines.begin() + pos.nHeader, ini.vecLines.begin() + pos.nEnd);
    return true;
}

bool DeleteKey(IniText& ini, std::string_view svSection, std::string_view svKey)
{
    const IniPos pos = Locate(ini, svSection, &svKey);
    if (pos.nKey == NPOS)
        return false;
    ini.vecLines.erase(ini.vecLines.begin() + pos.nKey);
    return true;
}

bool SetKey(IniText& ini, std::string_view svSection, std::string_view svKey, std::string_view svValue)
{
    std::vector<std::string>& vec = ini.vecLines;
    const IniPos pos = Locate(ini, svSection, &svKey);
    if (pos.nHeader == NPOS) {
        vec.push_back("[" + std::string(svSection) + "]\r");
        vec.push_back(std::string(svKey) + "=" + std::string(svValue) + "\r");
        return true;
    }
    if (pos.nKey != NPOS) {
        std::string_view svOldKey, svOldValue;
        ParseKey(vec[pos.nKey], svOldKey, svOldValue);
        if (svOldValue == svValue)
            return false;
        vec[pos.nKey] = std::string(svOldKey) + "=" + std::string(svValue) + LineEndOf(vec[pos.nKey]);
        return true;
    }
    size_t nInsert = pos.nEnd;
    while (nInsert > pos.nHeader + 1 && Trim(vec[nInsert - 1]).empty())
        --nInsert;
    vec.insert(vec.begin() + nInsert, std::string(svKey) + "=" + std::string(svValue) + "\r");
    return true;
}

// Applies the change to the text; false when the text stays as it was.
bool ApplyChange(IniText& ini, const wchar_t* szSection, const wchar_t* szKey, const wchar_t* szValue)
{
    const std::string strSection = WideToUtf8(szSection);
    const std::string_view svSection = Trim(strSection);
    if (!szKey)
        return DeleteSection(ini, svSection);
    const std::string strKey = WideToUtf8(szKey);
    if (!szValue)
        return DeleteKey(ini, svSection, Trim(strKey));
    // Like Windows, leading blanks of the value are not stored; trailing ones are trimmed when read.
    const std::string strValue = WideToUtf8(szValue);
    std::string_view svValue = strValue;
    while (!svValue.empty() && IsIniBlank(svValue.front()))
        svValue.remove_prefix(1);
    return SetKey(ini, svSection, Trim(strKey), svValue);
}

// The integer conversion of GetPrivateProfileIntW (RtlUnicodeStringToInteger with base 0).
int ParseProfileInt(std::wstring_view wsv)
{
    size_t i = 0;
    while (i < wsv.size() && wsv[i] <= L' ')
        ++i;
    bool bNegative = false;
    if (i < wsv.size() && (wsv[i] == L'+' || wsv[i] == L'-'))
        bNegative = wsv[i++] == L'-';
    unsigned nBase = 10;
    if (i + 1 < wsv.size() && wsv[i] == L'0') {
        const wchar_t c = wsv[i + 1];
        nBase = c == L'x' ? 16 : c == L'o' ? 8 : c == L'b' ? 2 : 10;
        if (nBase != 10)
            i += 2;
    }
    uint32_t nValue = 0;
    for (; i < wsv.size(); ++i) {
        const int nDigit = HexDigitValue(wsv[i]);
        if (nDigit < 0 || nDigit >= static_cast<int>(nBase))
            break;
        nValue = nValue * nBase + static_cast<uint32_t>(nDigit);
    }
    return static_cast<int>(bNegative ? 0u - nValue : nValue);
}

}  // namespace

std::wstring GetProfileString(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
                              const wchar_t* szDefault, size_t nBufChars)
{
    ProfileArgs::CheckRead(wstrFile, szSection, szKey, nBufChars);
    std::wstring wstrValue;
    if (!FindValue(wstrFile, szSection, szKey, wstrValue))
        wstrValue = DefaultValue(szDefault);
    if (wstrValue.size() > nBufChars - 1)
        wstrValue.resize(nBufChars - 1);
    return wstrValue;
}

int GetProfileInt(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey, int nDefault)
{
    const std::wstring wstrValue = GetProfileString(wstrFile, szSection, szKey, L"", INT_BUF_CHARS);
    return wstrValue.empty() ? nDefault : ParseProfileInt(wstrValue);
}

bool WriteProfileString(const std::wstring& wstrFile, const wchar_t* szSection, const wchar_t* szKey,
                        const wchar_t* szValue)
{
    ProfileArgs::CheckWrite(wstrFile, szSection, szKey, szValue);
    const std::string strPath = WideToUtf8(wstrFile);
    std::lock_guard g(IniMutex());
    IniText ini;
    // A file that exists but cannot be read must not be replaced by one holding only this key.
    if (ReadIni(strPath, ini) == ReadResult::FAILED)
        return false;
    if (!ApplyChange(ini, szSection, szKey, szValue))
        return true;
    return WriteIniAtomically(strPath, ini);
}

void FlushProfile(const std::wstring&) {}

}  // namespace QZSTD

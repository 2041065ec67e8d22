// The error machinery shared by every module: an exception that carries the module name, the
// numeric code, the source position and the message arguments, and per-module message tables.
#pragma once

#include <exception>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace QZSTD {

// One row of a module's message table; a table ends with {0, nullptr}.
struct ErrorEntry
{
    int nCode;
    const wchar_t* szFormat;
};

// Registers (or replaces) the message table of a module. The table must outlive the process.
void RegisterErrorTable(const char* szModule, const ErrorEntry* pTable);
// The message format of (module, code), or nullptr when none is registered.
const wchar_t* FindErrorFormat(std::string_view strModule, int nCode);

// Module name under which failures of operating-system calls are raised; the code is the last-error
// (Windows) or errno (POSIX) value.
inline constexpr const char* SYSTEM_MODULE = "SYSTEM";

// A message argument: narrow arguments are UTF-8, numbers are kept as their decimal text.
class ErrorArg
{
public:
    ErrorArg(const char* sz);
    ErrorArg(const std::string& str) : ErrorArg(str.c_str()) {}
    ErrorArg(const wchar_t* wsz) : m_wstr(wsz ? wsz : L"") {}
    ErrorArg(const std::wstring& wstr) : m_wstr(wstr) {}
    ErrorArg(long long n) : m_wstr(std::to_wstring(n)) {}
    ErrorArg(int n) : ErrorArg(static_cast<long long>(n)) {}
    ErrorArg(long n) : ErrorArg(static_cast<long long>(n)) {}
    ErrorArg(unsigned long n) : m_wstr(std::to_wstring(n)) {}
    ErrorArg(unsigned n) : m_wstr(std::to_wstring(n)) {}
    const std::wstring& Text() const { return m_wstr; }

private:
    std::wstring m_wstr;
};

class QZError : public std::exception
{
public:
    QZError(const char* szModule, int nCode, const char* szFile, int nLine,
            std::initializer_list<ErrorArg> args);

    const std::string& GetModule() const { return m_strModule; }
    int GetCode() const { return m_nCode; }
    const char* GetFile() const { return m_szFile; }
    int GetLine() const { return m_nLine; }
    const std::vector<std::wstring>& GetArgs() const { return m_vecArgs; }
    bool Is(std::string_view strModule, int nCode) const
    {
        return m_nCode == nCode && m_strModule == strModule;
    }

    // The message from the module's table with the arguments filled in; for system errors the
    // operating system's own text. An unregistered code gives "Unknown error" and the arguments.
    std::wstring GetMessage() const;
    // The error as the trace prints it: #1187 (QZSTD) "Bad parameter "name"" at params.cpp:42
    std::wstring Describe() const;
    const char* what() const noexcept override;

private:
    std::string m_strModule;
    int m_nCode;
    const char* m_szFile;
    int m_nLine;
    std::vector<std::wstring> m_vecArgs;
    mutable std::string m_strWhat;
};

// Text of an operating-system error code (FormatMessage on Windows, strerror on POSIX).
std::wstring SystemErrorText(int nCode);
// The calling thread's last system error (GetLastError / errno).
int LastSystemError();

// Fills a "%hs"/"%ls"/"%s"/"%d" style message with the arguments in order; a conversion without an
// argument left prints nothing, arguments left over are ignored. Never throws on a bad format.
std::wstring FillMessage(const wchar_t* szFormat, const std::vector<std::wstring>& vecArgs);

// Codes of module "QZSTD".
namespace Err {
inline constexpr const char* MODULE = "QZSTD";
enum : int
{
    WAIT_FAILURE = 1182,
    WRITE_FAILED = 1183,
    NOT_FOUND = 1186,
    BAD_PARAM = 1187,
    OUT_OF_RANGE = 1188,
    PRODUCT_MISSING = 1192,
    UNSUPPORTED = 1193,
    NOT_IMPLEMENTED = 1194,
    ASSERTION = 1198,
    SHUTDOWN = 1199,
    FILE_NOT_FOUND = 1205,
};
}  // namespace Err

}  // namespace QZSTD

#define QZ_THROW(module, code, ...) \
    throw ::QZSTD::QZError((module), (code), __FILE__, __LINE__, {__VA_ARGS__})
#define QZ_THROW_STD(code, ...) QZ_THROW(::QZSTD::Err::MODULE, (code), __VA_ARGS__)
// Raises the calling thread's last system error.
#define QZ_THROW_SYSTEM() QZ_THROW(::QZSTD::SYSTEM_MODULE, ::QZSTD::LastSystemError())
#define QZ_THROW_SYSTEM_CODE(code) QZ_THROW(::QZSTD::SYSTEM_MODULE, (code))
#define QZ_ASSERTION_FAILED(text) QZ_THROW_STD(::QZSTD::Err::ASSERTION, text)
#define QZ_ASSERT(expr)                 \
    do {                                \
        if (!(expr))                    \
            QZ_ASSERTION_FAILED(#expr); \
    } while (0)
// A bad argument: error 1187 with the argument's name.
#define QZ_CHECK_ARG(cond, name)                         \
    do {                                                 \
        if (!(cond))                                     \
            QZ_THROW_STD(::QZSTD::Err::BAD_PARAM, name); \
    } while (0)

// Trace text of a Params.
#include "std/par/dump.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <string_view>
#include <vector>

#include "std/par/errors.h"
#include "std/strconv.h"
#include "std/wformat.h"

namespace QZPAR {
namespace {

constexpr size_t INDENT_WIDTH = 4;

void AppendIndent(std::wstring& out, int nIndent)
{
    out.append(static_cast<size_t>(nIndent < 0 ? 0 : nIndent) * INDENT_WIDTH, L' ');
}

// Keeps one value per line: control characters become escapes.
void AppendEscaped(std::wstring& out, std::wstring_view wsv)
{
    for (wchar_t c : wsv) {
        if (c == L'\n')
            out += L"\\n";
        else if (c == L'\r')
            out += L"\\r";
        else if (c == L'\t')
            out += L"\\t";
        else if (static_cast<uint32_t>(c) < 0x20 || c == 0x7F)
            out += QZSTD::FormatW(L"\\x%02X", static_cast<unsigned>(c));
        else
            out += c;
    }
}

// Shortest text that reads back as the same number.
template <class T>
std::wstring FloatingText(T value)
{
    char buf[64];
    const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, value);
    return std::wstring(buf, r.ptr);
}

// "-1" is "no time"; other values get their UTC calendar time after the number.
std::wstring DateTimeText(int32_t nSeconds)
{
    std::wstring wstr = std::to_wstring(nSeconds);
    if (nSeconds < 0)
        return wstr;
    using namespace std::chrono;
    const sys_seconds tp{seconds{nSeconds}};
    const sys_days day = floor<days>(tp);
    const year_month_day ymd{day};
    const hh_mm_ss hms{tp - day};
    return wstr + QZSTD::FormatW(L" (%04d-%02u-%02u %02d:%02d:%02d UTC)", static_cast<int>(ymd.year()),
                                 static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                                 static_cast<int>(hms.hours().count()),
                                 static_cast<int>(hms.minutes().count()),
                                 static_cast<int>(hms.seconds().count()));
}

class Dumper
{
public:
    explicit Dumper(std::wstring& out) : m_out(out) {}

    void AppendParams(Params* pParams, int nIndent, int nDepth)
    {
        std::vector<ParamsEntry> vecEntries;
        QZSTD::CAutoPtr<ParamsInternal> pInternal = QZSTD::QueryInterface<ParamsInternal>(pParams);
        if (!pInternal)
            QZ_THROW(Err::MODULE, Err::WRONG_PARAMS);
        pInternal->GetEntries(vecEntries);
        for (const ParamsEntry& e : vecEntries)
            AppendEntry(e.m_shName.view(), e.m_pValue, nIndent, nDepth);
    }

private:
    void AppendEntry(std::wstring_view wsvName, Value* pValue, int nIndent, int nDepth)
    {
        AppendIndent(m_out, nIndent);
        AppendEscaped(m_out, wsvName);
        if (!pValue) {
            m_out += L" = <null>\n";
            return;
        }
        switch (pValue->GetType()) {
            case Value::PARAMS_T:
                return AppendNested(static_cast<ParamsValue*>(pValue), nIndent, nDepth);
            case Value::ARRAY_T:
                return AppendArray(static_cast<ArrayValue*>(pValue), nIndent, nDepth);
            default:
                AppendScalar(pValue);
                m_out += L'\n';
        }
    }

    void AppendScalar(Value* pValue)
    {
        switch (pValue->GetType()) {
            case Value::STRING_T: {
                const StringValue* p = static_cast<StringValue*>(pValue);
                m_out += L" = (STRING_T)\"";
                AppendEscaped(m_out, std::wstring_view(p->GetValue(), p->GetLength()));
                m_out += L'"';
                return;
            }
            case Value::BOOL_T:
                m_out +=
                    static_cast<BoolValue*>(pValue)->GetValue() ? L" = (BOOL_T)true" : L" = (BOOL_T)false";
                return;
            case Value::INT_T:
                m_out += L" = (INT_T)" + std::to_wstring(static_cast<IntValue*>(pValue)->GetValue());
                return;
            case Value::LONG_T:
                m_out += L" = (LONG_T)" + std::to_wstring(static_cast<LongValue*>(pValue)->GetValue());
                return;
            case Value::DATE_TIME_T:
                m_out += L" = (DATE_TIME_T)" + DateTimeText(static_cast<DateTimeValue*>(pValue)->GetValue());
                return;
            case Value::DATE_T:
                m_out += L" = (DATE_T)";
                AppendEscaped(m_out, QZSTD::Utf8ToWide(static_cast<DateValue*>(pValue)->GetValue()));
                return;
            case Value::BINARY_T:
                m_out += L" = BINARY_T (size =" +
                         std::to_wstring(static_cast<BinaryValue*>(pValue)->GetSize()) + L")";
                return;
            case Value::FLOAT_T:
                m_out += L" = (FLOAT_T)" + FloatingText(static_cast<FloatValue*>(pValue)->GetValue());
                return;
            case Value::DOUBLE_T:
                m_out += L" = (DOUBLE_T)" + FloatingText(static_cast<DoubleValue*>(pValue)->GetValue());
                return;
            default:
                m_out += L" = (UNKNOWN_T " + std::to_wstring(pValue->GetType()) + L")";
        }
    }

    void AppendNested(ParamsValue* pValue, int nIndent, int nDepth)
    {
        QZSTD::CAutoPtr<Params> pParams;
        pValue->GetValue(&pParams);
        if (!pParams) {
            m_out += L" (PARAMS_T) <null> \n";
        } else if (nDepth >= DUMP_MAX_DEPTH) {
            m_out += L" (PARAMS_T) <nested too deep>\n";
        } else {
            m_out += L" (PARAMS_T)\n";
            AppendParams(pParams, nIndent + 1, nDepth + 1);
        }
    }

    void AppendArray(ArrayValue* pArray, int nIndent, int nDepth)
    {
        if (nDepth >= DUMP_MAX_DEPTH) {
            m_out += L" (ARRAY_T) <nested too deep>\n";
            return;
        }
        m_out += L" (ARRAY_T)\n";
        for (size_t i = 0; i < pArray->GetSize(); ++i) {
            QZSTD::CAutoPtr<Value> pElement;
            pArray->GetAt(i, &pElement);
            AppendEntry(L"[" + std::to_wstring(i) + L"]", pElement, nIndent + 1, nDepth + 1);
        }
    }

    std::wstring& m_out;
};

}  // namespace

std::wstring DumpParams(Params* pParams, int nIndent)
{
    std::wstring out;
    if (!pParams) {
        AppendIndent(out, nIndent);
        return out + L"<null>\n";
    }
    Dumper(out).AppendParams(pParams, nIndent, 0);
    return out;
}

}  // namespace QZPAR

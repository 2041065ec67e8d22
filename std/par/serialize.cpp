// Writer and reader of the binary Params stream (see docs/params-binary-format.md).
#include "std/par/serialize.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string_view>

#include "std/par/errors.h"
#include "std/par/paramshelpers.h"
#include "std/fspath.h"
#include "std/strconv.h"

namespace QZPAR {
namespace {

// Smallest encodings, used to refuse counts that the remaining input could not hold: an entry is a
// name of at least one unit (4 + 2 bytes), a type byte and at least one payload byte; an array
// element is at least its type byte (0 for a null element).
constexpr size_t MIN_ENTRY_SIZE = 8;
constexpr size_t MIN_ELEMENT_SIZE = 1;
constexpr uint8_t NULL_ELEMENT = 0;

std::wstring Num(uint64_t n)
{
    return std::to_wstring(static_cast<unsigned long long>(n));
}

std::wstring SignedNum(int64_t n)
{
    return std::to_wstring(static_cast<long long>(n));
}

// ---- writing ----

class StreamWriter
{
public:
    explicit StreamWriter(std::vector<uint8_t>& vecOut) : m_out(vecOut) {}

    void Bytes(const void* pData, size_t nBytes)
    {
        const uint8_t* p = static_cast<const uint8_t*>(pData);
        m_out.insert(m_out.end(), p, p + nBytes);
    }
    void U8(uint8_t n) { m_out.push_back(n); }
    void U16(uint16_t n) { LittleEndian(n, 2); }
    void U32(uint32_t n) { LittleEndian(n, 4); }
    void U64(uint64_t n) { LittleEndian(n, 8); }
    // Lengths are 32-bit in the stream.
    void Length(size_t n)
    {
        if (n > UINT32_MAX)
            QZ_THROW(BinErr::MODULE, BinErr::TOO_LARGE_TO_WRITE, Num(n));
        U32(static_cast<uint32_t>(n));
    }
    // UTF-16LE with its length in units, the same on every platform.
    void Text(std::wstring_view wsv)
    {
        const std::u16string u16 = QZSTD::WideToUtf16(wsv);
        Length(u16.size());
        for (char16_t c : u16)
            U16(static_cast<uint16_t>(c));
    }
    // Overwrites nBytes bytes at nOffset with n, little-endian.
    void Patch(size_t nOffset, uint64_t n, size_t nBytes)
    {
        for (size_t i = 0; i < nBytes; ++i)
            m_out[nOffset + i] = static_cast<uint8_t>(n >> (8 * i));
    }
    size_t Offset() const { return m_out.size(); }

private:
    void LittleEndian(uint64_t n, size_t nBytes)
    {
        for (size_t i = 0; i < nBytes; ++i)
            m_out.push_back(static_cast<uint8_t>(n >> (8 * i)));
    }

    std::vector<uint8_t>& m_out;
};

template <class To, class From>
To BitsOf(From value)
{
    static_assert(sizeof(To) == sizeof(From));
    To n;
    std::memcpy(&n, &value, sizeof n);
    return n;
}

class ParamsWriter
{
public:
    explicit ParamsWriter(std::vector<uint8_t>& vecOut) : m_out(vecOut) {}

    void WriteParams(Params* pParams, int nDepth)
    {
        CheckDepth(nDepth);
        std::vector<ParamsEntry> vecEntries;
        QZSTD::CAutoPtr<ParamsInternal> pInternal = QZSTD::QueryInterface<ParamsInternal>(pParams);
        if (!pInternal)
            QZ_THROW(Err::MODULE, Err::WRONG_PARAMS);
        pInternal->GetEntries(vecEntries);
        m_out.Length(vecEntries.size());
        for (const ParamsEntry& e : vecEntries) {
            m_out.Text(e.m_shName.view());
            WriteValue(e.m_pValue, nDepth);
        }
    }

private:
    void CheckDepth(int nDepth)
    {
        if (nDepth > PARAMS_STREAM_MAX_DEPTH)
            QZ_THROW(BinErr::MODULE, BinErr::TOO_DEEP, Num(PARAMS_STREAM_MAX_DEPTH), Num(m_out.Offset()));
    }

    void WriteValue(Value* pValue, int nDepth)
    {
        if (!pValue) {
            m_out.U8(NULL_ELEMENT);
            return;
        }
        m_out.U8(static_cast<uint8_t>(pValue->GetType()));
        switch (pValue->GetType()) {
            case Value::STRING_T: {
                const StringValue* p = static_cast<StringValue*>(pValue);
                return m_out.Text(std::wstring_view(p->GetValue(), p->GetLength()));
            }
            case Value::BOOL_T:
                return m_out.U8(static_cast<BoolValue*>(pValue)->GetValue() ? 1 : 0);
            case Value::INT_T:
                return m_out.U32(static_cast<uint32_t>(static_cast<IntValue*>(pValue)->GetValue()));
            case Value::LONG_T:
                return m_out.U64(static_cast<uint64_t>(static_cast<LongValue*>(pValue)->GetValue()));
            case Value::DATE_TIME_T:
                return m_out.U32(static_cast<uint32_t>(static_cast<DateTimeValue*>(pValue)->GetValue()));
            case Value::DATE_T:
                return WriteBlock(std::string_view(static_cast<DateValue*>(pValue)->GetValue()));
            case Value::BINARY_T: {
                const BinaryValue* p = static_cast<BinaryValue*>(pValue);
                return WriteBlock(std::string_view(static_cast<const char*>(p->GetData()), p->GetSize()));
            }
            case Value::FLOAT_T:
                return m_out.U32(BitsOf<uint32_t>(static_cast<FloatValue*>(pValue)->GetValue()));
            case Value::DOUBLE_T:
                return m_out.U64(BitsOf<uint64_t>(static_cast<DoubleValue*>(pValue)->GetValue()));
            case Value::PARAMS_T:
                return WriteNested(static_cast<ParamsValue*>(pValue), nDepth);
            case Value::ARRAY_T:
                return WriteArray(static_cast<ArrayValue*>(pValue), nDepth);
            default:
                QZ_THROW(Err::MODULE, Err::WRONG_VALUE);
        }
    }

    void WriteBlock(std::string_view sv)
    {
        m_out.Length(sv.size());
        m_out.Bytes(sv.data(), sv.size());
    }

    void WriteNested(ParamsValue* pValue, int nDepth)
    {
        QZSTD::CAutoPtr<Params> pParams;
        pValue->GetValue(&pParams);
        m_out.U8(pParams ? 1 : 0);
        if (pParams)
            WriteParams(pParams, nDepth + 1);
    }

    void WriteArray(ArrayValue* pArray, int nDepth)
    {
        CheckDepth(nDepth + 1);
        const size_t nSize = pArray->GetSize();
        m_out.Length(nSize);
        for (size_t i = 0; i < nSize; ++i) {
            QZSTD::CAutoPtr<Value> pElement;
            pArray->GetAt(i, &pElement);
            WriteValue(pElement, nDepth + 1);
        }
    }

    StreamWriter m_out;
};

// ---- reading ----

// Bounds-checked little-endian reads; every failure names the offset of the field.
class StreamReader
{
public:
    StreamReader(const uint8_t* pData, size_t nSize) : m_pData(pData), m_nSize(nSize) {}

    size_t Offset() const { return m_nPos; }
    size_t Left() const { return m_nSize - m_nPos; }

    const uint8_t* Bytes(size_t nBytes, const wchar_t* szWhat)
    {
        if (nBytes > Left())
            QZ_THROW(BinErr::MODULE, BinErr::TRUNCATED, szWhat, Num(nBytes), Num(m_nPos), Num(Left()));
        const uint8_t* p = m_pData + m_nPos;
        m_nPos += nBytes;
        return p;
    }
    uint8_t U8(const wchar_t* szWhat) { return *Bytes(1, szWhat); }
    uint16_t U16(const wchar_t* szWhat) { return static_cast<uint16_t>(LittleEndian(2, szWhat)); }
    uint32_t U32(const wchar_t* szWhat) { return static_cast<uint32_t>(LittleEndian(4, szWhat)); }
    uint64_t U64(const wchar_t* szWhat) { return LittleEndian(8, szWhat); }

    // A length prefix whose nUnit-byte items must all lie in the remaining input.
    uint32_t Length(size_t nUnit, const wchar_t* szWhat)
    {
        const size_t nAt = m_nPos;
        const uint32_t n = U32(szWhat);
        if (n > Left() / nUnit)
            QZ_THROW(BinErr::MODULE, BinErr::LENGTH_TOO_LARGE, Num(n), Num(nAt), Num(Left()));
        return n;
    }
    // A count of items of at least nMinSize bytes each: refused before anything is reserved for it.
    uint32_t Count(size_t nMinSize, const wchar_t* szWhat)
    {
        const size_t nAt = m_nPos;
        const uint32_t n = U32(szWhat);
        if (n > Left() / nMinSize)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_COUNT, Num(n), Num(nAt), Num(Left()));
        return n;
    }

private:
    uint64_t LittleEndian(size_t nBytes, const wchar_t* szWhat)
    {
        const uint8_t* p = Bytes(nBytes, szWhat);
        uint64_t n = 0;
        for (size_t i = 0; i < nBytes; ++i)
            n |= static_cast<uint64_t>(p[i]) << (8 * i);
        return n;
    }

    const uint8_t* m_pData;
    size_t m_nSize;
    size_t m_nPos = 0;
};

class ParamsReader
{
public:
    ParamsReader(const uint8_t* pData, size_t nSize) : m_in(pData, nSize) {}

    QZSTD::CAutoPtr<Params> ReadStream()
    {
        ReadHeader();
        QZSTD::CAutoPtr<Params> pParams = ReadParams(1);
        if (m_in.Left() != 0)
            QZ_THROW(BinErr::MODULE, BinErr::TRAILING_DATA, Num(m_in.Left()), Num(m_in.Offset()));
        return pParams;
    }

private:
    void ReadHeader()
    {
        const uint8_t* pMagic = m_in.Bytes(sizeof PARAMS_STREAM_MAGIC, L"signature");
        if (std::memcmp(pMagic, PARAMS_STREAM_MAGIC, sizeof PARAMS_STREAM_MAGIC) != 0)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_MAGIC, Num(0));
        const size_t nVersionAt = m_in.Offset();
        if (const uint16_t nVersion = m_in.U16(L"version"); nVersion != PARAMS_STREAM_VERSION)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_VERSION, Num(nVersion), Num(nVersionAt));
        const size_t nFlagsAt = m_in.Offset();
        if (const uint16_t nFlags = m_in.U16(L"flags"); nFlags != 0)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_FLAGS, Num(nFlags), Num(nFlagsAt));
        // The body length makes every strict prefix of a stream invalid, and extra bytes too.
        const size_t nLengthAt = m_in.Offset();
        const uint32_t nBody = m_in.U32(L"body length");
        if (nBody > m_in.Left())
            QZ_THROW(BinErr::MODULE, BinErr::TRUNCATED, L"body", Num(nBody), Num(nLengthAt),
                     Num(m_in.Left()));
        if (nBody < m_in.Left())
            QZ_THROW(BinErr::MODULE, BinErr::TRAILING_DATA, Num(m_in.Left() - nBody),
                     Num(m_in.Offset() + nBody));
    }

    void CheckDepth(int nDepth)
    {
        if (nDepth > PARAMS_STREAM_MAX_DEPTH)
            QZ_THROW(BinErr::MODULE, BinErr::TOO_DEEP, Num(PARAMS_STREAM_MAX_DEPTH), Num(m_in.Offset()));
    }

    QZSTD::CAutoPtr<Params> ReadParams(int nDepth)
    {
        CheckDepth(nDepth);
        QZSTD::CAutoPtr<Params> pParams = CreateParams();
        const uint32_t nCount = m_in.Count(MIN_ENTRY_SIZE, L"entry count");
        for (uint32_t i = 0; i < nCount; ++i)
            ReadEntry(pParams, nDepth);
        return pParams;
    }

    void ReadEntry(Params* pParams, int nDepth)
    {
        const size_t nNameAt = m_in.Offset();
        const std::wstring wstrName = ReadText(L"name");
        if (wstrName.empty())
            QZ_THROW(BinErr::MODULE, BinErr::EMPTY_NAME, Num(nNameAt));
        if (wstrName.find(L'\0') != std::wstring::npos)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_CHARACTER, L"name", Num(nNameAt));
        if (pParams->DoesExist(wstrName.c_str()))
            QZ_THROW(BinErr::MODULE, BinErr::DUPLICATE_NAME, wstrName, Num(nNameAt));
        QZSTD::CAutoPtr<Value> pValue = ReadValue(nDepth);
        if (!pValue)
            QZ_THROW(BinErr::MODULE, BinErr::UNKNOWN_TYPE, Num(NULL_ELEMENT), Num(m_in.Offset() - 1));
        pParams->AddValue(wstrName.c_str(), pValue);
    }

    std::wstring ReadText(const wchar_t* szWhat)
    {
        const uint32_t nUnits = m_in.Length(2, szWhat);
        const uint8_t* p = m_in.Bytes(size_t{nUnits} * 2, szWhat);
        std::u16string u16(nUnits, u'\0');
        for (uint32_t i = 0; i < nUnits; ++i)
            u16[i] = static_cast<char16_t>(p[2 * i] | (p[2 * i + 1] << 8));
        return QZSTD::Utf16ToWide(u16);
    }

    std::string_view ReadBlock(const wchar_t* szWhat)
    {
        const uint32_t n = m_in.Length(1, szWhat);
        return std::string_view(reinterpret_cast<const char*>(m_in.Bytes(n, szWhat)), n);
    }

    // A value with its type byte; null for the null element (type 0).
    QZSTD::CAutoPtr<Value> ReadValue(int nDepth)
    {
        const size_t nTypeAt = m_in.Offset();
        const uint8_t nType = m_in.U8(L"type");
        switch (nType) {
            case NULL_ELEMENT:
                return {};
            case Value::STRING_T:
                return CreateString(std::wstring_view(ReadText(L"string")));
            case Value::BOOL_T:
                return CreateBool(ReadFlag(L"bool"));
            case Value::INT_T:
                return CreateInt(static_cast<int32_t>(m_in.U32(L"int")));
            case Value::LONG_T:
                return CreateLong(static_cast<int64_t>(m_in.U64(L"long")));
            case Value::DATE_TIME_T:
                return ReadDateTime();
            case Value::DATE_T:
                return ReadDate();
            case Value::BINARY_T: {
                const std::string_view sv = ReadBlock(L"binary");
                return CreateBinary(sv.data(), sv.size());
            }
            case Value::FLOAT_T:
                return CreateFloat(BitsOf<float>(m_in.U32(L"float")));
            case Value::DOUBLE_T:
                return CreateDouble(BitsOf<double>(m_in.U64(L"double")));
            case Value::PARAMS_T:
                return ReadNested(nDepth);
            case Value::ARRAY_T:
                return ReadArray(nDepth);
            default:
                QZ_THROW(BinErr::MODULE, BinErr::UNKNOWN_TYPE, Num(nType), Num(nTypeAt));
        }
    }

    bool ReadFlag(const wchar_t* szWhat)
    {
        const size_t nAt = m_in.Offset();
        const uint8_t n = m_in.U8(szWhat);
        if (n > 1)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_BOOL, szWhat, Num(n), Num(nAt));
        return n == 1;
    }

    // Checked here because DateTimeValue ends the process on such a value.
    QZSTD::CAutoPtr<Value> ReadDateTime()
    {
        const size_t nAt = m_in.Offset();
        const int32_t n = static_cast<int32_t>(m_in.U32(L"DateTime"));
        if (n < DateTimeValue::NO_TIME)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_DATE_TIME, SignedNum(n), Num(nAt));
        return CreateDateTime(n);
    }

    // A date is a C string in memory; a NUL inside would silently cut it.
    QZSTD::CAutoPtr<Value> ReadDate()
    {
        const size_t nAt = m_in.Offset();
        const std::string str(ReadBlock(L"date"));
        if (str.find('\0') != std::string::npos)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_CHARACTER, L"date", Num(nAt));
        return CreateDate(str.c_str());
    }

    QZSTD::CAutoPtr<Value> ReadNested(int nDepth)
    {
        if (!ReadFlag(L"presence"))
            return CreateParamsValue(nullptr);
        QZSTD::CAutoPtr<Params> pParams = ReadParams(nDepth + 1);
        return CreateParamsValue(pParams);
    }

    QZSTD::CAutoPtr<Value> ReadArray(int nDepth)
    {
        CheckDepth(nDepth + 1);
        const size_t nCountAt = m_in.Offset();
        const uint32_t nCount = m_in.Count(MIN_ELEMENT_SIZE, L"element count");
        if (nCount > ArrayValue::MAX_SIZE)
            QZ_THROW(BinErr::MODULE, BinErr::BAD_COUNT, Num(nCount), Num(nCountAt), Num(m_in.Left()));
        QZSTD::CAutoPtr<ArrayValue> pArray = CreateArray(nCount);
        for (uint32_t i = 0; i < nCount; ++i)
            pArray->SetAt(i, ReadValue(nDepth + 1));
        return pArray;
    }

    StreamReader m_in;
};

}  // namespace

void SerializeParams(Params* pParams, std::vector<uint8_t>& vecOut)
{
    QZ_CHECK_ARG(pParams, "pParams");
    // The header is filled in once the body length is known.
    std::vector<uint8_t> vecStream(PARAMS_STREAM_HEADER_SIZE, 0);
    ParamsWriter(vecStream).WriteParams(pParams, 1);
    const size_t nBody = vecStream.size() - PARAMS_STREAM_HEADER_SIZE;
    if (nBody > UINT32_MAX)
        QZ_THROW(BinErr::MODULE, BinErr::TOO_LARGE_TO_WRITE, Num(vecStream.size()));
    std::memcpy(vecStream.data(), PARAMS_STREAM_MAGIC, sizeof PARAMS_STREAM_MAGIC);
    StreamWriter header(vecStream);
    header.Patch(4, PARAMS_STREAM_VERSION, 2);
    header.Patch(6, 0, 2);  // flags
    header.Patch(8, nBody, 4);
    vecOut.swap(vecStream);
}

QZSTD::CAutoPtr<Params> DeserializeParams(const void* pData, size_t nSize)
{
    QZ_CHECK_ARG(pData || nSize == 0, "pData");
    RegisterErrorTables();
    return ParamsReader(static_cast<const uint8_t*>(pData), nSize).ReadStream();
}

void WriteParamsFile(const std::wstring& wstrPath, Params* pParams)
{
    std::vector<uint8_t> vecStream;
    SerializeParams(pParams, vecStream);
    std::ofstream file(QZSTD::FsPath(wstrPath), std::ios::binary | std::ios::trunc);
    if (file)
        file.write(reinterpret_cast<const char*>(vecStream.data()),
                   static_cast<std::streamsize>(vecStream.size()));
    if (file)
        file.flush();
    if (!file)
        QZ_THROW(BinErr::MODULE, BinErr::CANNOT_WRITE_FILE, wstrPath);
}

QZSTD::CAutoPtr<Params> ReadParamsFile(const std::wstring& wstrPath)
{
    const std::filesystem::path path = QZSTD::FsPath(wstrPath);
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec))
        QZ_THROW_STD(QZSTD::Err::FILE_NOT_FOUND, wstrPath);
    std::ifstream file(path, std::ios::binary);
    std::vector<uint8_t> vecStream;
    if (file)
        vecStream.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (file.bad() || !file.is_open())
        QZ_THROW(BinErr::MODULE, BinErr::CANNOT_READ_FILE, wstrPath);
    return DeserializeParams(vecStream.data(), vecStream.size());
}

}  // namespace QZPAR

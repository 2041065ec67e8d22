// Reader and writer of the settings storage XML (pugixml). Layout, in short:
//
//   <settings_storage format="1">
//       <product name="1103">
//           <version name="1.0.0.0">
//               <section name="global">
//                   <value name="QZNAG_SRVID" type="STRING_T" value="..."/>
//                   <value name="nested" type="PARAMS_T"> <value .../> </value>
//                   <value name="list" type="ARRAY_T">
//                       <item type="INT_T" value="1"/>
//                       <item null="true"/>
//                   </value>
//
// Scalars are kept in attributes, never in element text: a parser keeps attribute text exactly
// (spaces included), while whitespace-only element text is dropped.
#include "std/ss/ssxml.h"

#include <pugixml.hpp>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/ss/sscodec.h"
#include "std/ss/sserrors.h"
#include "std/strconv.h"

namespace QZSTD::SsXml {
namespace {

using QZPAR::Value;

constexpr const char* ROOT_ELEMENT = "settings_storage";
constexpr const char* FORMAT_ATTR = "format";
constexpr const char* FORMAT_VERSION = "1";
constexpr const char* PRODUCT_ELEMENT = "product";
constexpr const char* VERSION_ELEMENT = "version";
constexpr const char* SECTION_ELEMENT = "section";
constexpr const char* VALUE_ELEMENT = "value";
constexpr const char* ITEM_ELEMENT = "item";
constexpr const char* NAME_ATTR = "name";
constexpr const char* NAME_HEX_ATTR = "name_hex";
constexpr const char* TYPE_ATTR = "type";
constexpr const char* TEXT_ATTR = "value";
constexpr const char* HEX_ATTR = "hex";
constexpr const char* NULL_ATTR = "null";
constexpr const char* NULL_TRUE = "true";
// Offending text is quoted in messages up to this many bytes.
constexpr size_t QUOTE_LIMIT = 40;

struct TypeName
{
    int nType;
    const char* szName;
};

// The names the value tree's trace dump prints.
constexpr TypeName TYPE_NAMES[] = {
    {Value::STRING_T, "STRING_T"}, {Value::BOOL_T, "BOOL_T"},           {Value::INT_T, "INT_T"},
    {Value::LONG_T, "LONG_T"},     {Value::DATE_TIME_T, "DATE_TIME_T"}, {Value::DATE_T, "DATE_T"},
    {Value::BINARY_T, "BINARY_T"}, {Value::FLOAT_T, "FLOAT_T"},         {Value::DOUBLE_T, "DOUBLE_T"},
    {Value::PARAMS_T, "PARAMS_T"}, {Value::ARRAY_T, "ARRAY_T"},
};

const char* NameOfType(int nType)
{
    for (const TypeName& t : TYPE_NAMES)
        if (t.nType == nType)
            return t.szName;
    return nullptr;
}

// 0 for an unknown name.
int TypeOfName(std::string_view svName)
{
    for (const TypeName& t : TYPE_NAMES)
        if (svName == t.szName)
            return t.nType;
    return 0;
}

std::wstring Quoted(std::string_view sv)
{
    const bool bCut = sv.size() > QUOTE_LIMIT;
    std::wstring wstr = L"\"" + Utf8ToWide(sv.substr(0, QUOTE_LIMIT));
    return wstr + (bCut ? L"...\"" : L"\"");
}

std::wstring Quoted(std::wstring_view wsv)
{
    return L"\"" + std::wstring(wsv) + L"\"";
}

std::wstring Widen(const char* sz)
{
    return Utf8ToWide(sz);
}

// ---- reading ----

class Reader
{
public:
    Reader(std::string_view svXml, const std::wstring& wstrOrigin) : m_svXml(svXml), m_wstrOrigin(wstrOrigin)
    {
    }

    StorageContent Read()
    {
        pugi::xml_document doc;
        const pugi::xml_parse_result result =
            doc.load_buffer(m_svXml.data(), m_svXml.size(), pugi::parse_default, pugi::encoding_auto);
        if (!result)
            QZ_THROW(SsErr::MODULE, SsErr::NOT_XML, m_wstrOrigin, LineAt(result.offset),
                     Widen(result.description()));
        StorageContent content;
        ReadProducts(RootOf(doc), content);
        return content;
    }

private:
    long long LineAt(ptrdiff_t nOffset) const
    {
        if (nOffset < 0)
            return 0;
        const size_t nEnd = std::min(static_cast<size_t>(nOffset), m_svXml.size());
        return 1 + std::count(m_svXml.begin(), m_svXml.begin() + static_cast<ptrdiff_t>(nEnd), '\n');
    }

    [[noreturn]] void Fail(pugi::xml_node node, const std::wstring& wstrWhat) const
    {
        QZ_THROW(SsErr::MODULE, SsErr::BAD_CONTENT, m_wstrOrigin, LineAt(node.offset_debug()), wstrWhat);
    }

    pugi::xml_node RootOf(const pugi::xml_document& doc) const
    {
        pugi::xml_node root;
        for (pugi::xml_node node : doc.children()) {
            if (node.type() != pugi::node_element)
                continue;
            if (root)
                Fail(node, L"more than one root element");
            root = node;
        }
        if (std::string_view(root.name()) != ROOT_ELEMENT)
            Fail(root, L"root element " + Quoted(root.name()) + L" instead of " + Quoted(ROOT_ELEMENT));
        const pugi::xml_attribute aFormat = root.attribute(FORMAT_ATTR);
        if (std::string_view(aFormat.value()) != FORMAT_VERSION)
            Fail(root, L"format " + Quoted(aFormat.value()) + L" is not supported (only " +
                           Quoted(FORMAT_VERSION) + L")");
        return root;
    }

    // Calls fn for every child element, which must all be named szElement. Text between the
    // elements is refused: the format has none, so it can only be damage.
    template <class Fn>
    void ForEachChild(pugi::xml_node parent, const char* szElement, Fn&& fn) const
    {
        for (pugi::xml_node node : parent.children()) {
            if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata)
                Fail(node, L"unexpected text inside <" + Widen(parent.name()) + L">");
            if (node.type() != pugi::node_element)
                continue;
            if (std::string_view(node.name()) != szElement)
                Fail(node, L"unexpected element <" + Widen(node.name()) + L"> inside <" +
                               Widen(parent.name()) + L">");
            fn(node);
        }
    }

    template <class Map>
    typename Map::mapped_type& AddUnique(Map& map, pugi::xml_node node, const wchar_t* szWhat) const
    {
        std::wstring wstrName = ReadName(node);
        auto [it, bInserted] = map.try_emplace(std::move(wstrName));
        if (!bInserted)
            Fail(node, std::wstring(L"duplicate ") + szWhat + L" " + Quoted(it->first));
        return it->second;
    }

    void ReadProducts(pugi::xml_node root, StorageContent& content) const
    {
        ForEachChild(root, PRODUCT_ELEMENT, [&](pugi::xml_node product) {
            VersionMap& mapVersions = AddUnique(content.m_mapProducts, product, L"product");
            ForEachChild(product, VERSION_ELEMENT, [&](pugi::xml_node version) {
                SectionMap& mapSections = AddUnique(mapVersions, version, L"version");
                ForEachChild(version, SECTION_ELEMENT, [&](pugi::xml_node section) {
                    AddUnique(mapSections, section, L"section") = ReadParams(section, 1);
                });
            });
        });
    }

    std::wstring ReadName(pugi::xml_node node) const
    {
        const pugi::xml_attribute aText = node.attribute(NAME_ATTR);
        const pugi::xml_attribute aHex = node.attribute(NAME_HEX_ATTR);
        if (aText && aHex)
            Fail(node, L"both \"name\" and \"name_hex\"");
        if (!aText && !aHex)
            Fail(node, L"<" + Widen(node.name()) + L"> without a name");
        std::wstring wstrName;
        if (aText) {
            wstrName = Utf8ToWide(aText.value());
        } else {
            std::optional<std::wstring> name = SsCodec::Utf16HexToWide(aHex.value());
            if (!name)
                Fail(node, L"bad hexadecimal name " + Quoted(aHex.value()));
            wstrName = std::move(*name);
        }
        // The value tree refuses these names; say so with the line instead of its bare error.
        if (wstrName.empty() || wstrName.find(L'\0') != std::wstring::npos)
            Fail(node, L"empty name or a name with a NUL character");
        return wstrName;
    }

    // The entries of a section or of a nested Params; nDepth is their level.
    CAutoPtr<QZPAR::Params> ReadParams(pugi::xml_node parent, int nDepth) const
    {
        CAutoPtr<QZPAR::Params> pParams = QZPAR::CreateParams();
        ForEachChild(parent, VALUE_ELEMENT, [&](pugi::xml_node node) {
            const std::wstring wstrName = ReadName(node);
            if (pParams->DoesExist(wstrName.c_str()))
                Fail(node, L"duplicate value " + Quoted(wstrName));
            CAutoPtr<Value> pValue = ReadValue(node, nDepth);
            pParams->AddValue(wstrName.c_str(), pValue);
        });
        return pParams;
    }

    int ReadType(pugi::xml_node node) const
    {
        const pugi::xml_attribute aType = node.attribute(TYPE_ATTR);
        if (!aType)
            Fail(node, L"<" + Widen(node.name()) + L"> without a type");
        const int nType = TypeOfName(aType.value());
        if (nType == 0)
            Fail(node, L"unknown type name " + Quoted(aType.value()));
        return nType;
    }

    CAutoPtr<Value> ReadValue(pugi::xml_node node, int nDepth) const
    {
        const int nType = ReadType(node);
        if (nType == Value::PARAMS_T)
            return ReadParamsValue(node, nDepth);
        if (nType == Value::ARRAY_T)
            return ReadArray(node, nDepth);
        CheckLeaf(node);
        return ReadScalar(node, nType);
    }

    // An array element: a value without a name, or a null element (no type, only null="true").
    // An element with a type and null="true" is a value holding a null Params, not a null element.
    CAutoPtr<Value> ReadItem(pugi::xml_node node, int nDepth) const
    {
        if (node.attribute(NAME_ATTR) || node.attribute(NAME_HEX_ATTR))
            Fail(node, L"an array element with a name");
        if (node.attribute(TYPE_ATTR) || !node.attribute(NULL_ATTR))
            return ReadValue(node, nDepth);
        if (node.first_child() || node.attribute(TEXT_ATTR) || node.attribute(HEX_ATTR))
            Fail(node, L"a null array element with content");
        CheckNullAttribute(node);
        return {};
    }

    void CheckNullAttribute(pugi::xml_node node) const
    {
        const pugi::xml_attribute aNull = node.attribute(NULL_ATTR);
        if (std::string_view(aNull.value()) != NULL_TRUE)
            Fail(node, L"\"null\" must be \"true\", not " + Quoted(aNull.value()));
    }

    void CheckDepth(pugi::xml_node node, int nDepth) const
    {
        if (nDepth > MAX_DEPTH)
            Fail(node, L"values nested deeper than " + std::to_wstring(MAX_DEPTH) + L" levels");
    }

    void CheckLeaf(pugi::xml_node node) const
    {
        if (node.first_child())
            Fail(node, L"content inside a value of type " + Widen(node.attribute(TYPE_ATTR).value()));
        if (node.attribute(NULL_ATTR))
            Fail(node, L"\"null\" on a value of type " + Widen(node.attribute(TYPE_ATTR).value()));
    }

    CAutoPtr<Value> ReadParamsValue(pugi::xml_node node, int nDepth) const
    {
        if (node.attribute(TEXT_ATTR) || node.attribute(HEX_ATTR))
            Fail(node, L"a PARAMS_T value with \"value\" or \"hex\"");
        if (!node.attribute(NULL_ATTR)) {
            CheckDepth(node, nDepth + 1);
            return QZPAR::CreateParamsValue(ReadParams(node, nDepth + 1));
        }
        CheckNullAttribute(node);
        if (node.first_child())
            Fail(node, L"a null PARAMS_T value with content");
        return QZPAR::CreateParamsValue(nullptr);
    }

    CAutoPtr<Value> ReadArray(pugi::xml_node node, int nDepth) const
    {
        if (node.attribute(TEXT_ATTR) || node.attribute(HEX_ATTR) || node.attribute(NULL_ATTR))
            Fail(node, L"an ARRAY_T value with \"value\", \"hex\" or \"null\"");
        CheckDepth(node, nDepth + 1);
        std::vector<CAutoPtr<Value>> vecItems;
        ForEachChild(node, ITEM_ELEMENT,
                     [&](pugi::xml_node item) { vecItems.push_back(ReadItem(item, nDepth + 1)); });
        CAutoPtr<QZPAR::ArrayValue> pArray = QZPAR::CreateArray(vecItems.size());
        for (size_t i = 0; i < vecItems.size(); ++i)
            pArray->SetAt(i, vecItems[i]);
        return pArray;
    }

    // The text of a scalar: exactly one of "value" (where allowed) and "hex" (where allowed).
    std::string_view Payload(pugi::xml_node node, bool bTextAllowed, bool bHexAllowed, bool& bHex) const
    {
        const pugi::xml_attribute aText = node.attribute(TEXT_ATTR);
        const pugi::xml_attribute aHex = node.attribute(HEX_ATTR);
        const char* szType = node.attribute(TYPE_ATTR).value();
        if ((aText && !bTextAllowed) || (aHex && !bHexAllowed) || (aText && aHex))
            Fail(node, L"a " + Widen(szType) + L" value with " + (aHex ? L"\"hex\"" : L"\"value\"") +
                           L" where it does not belong");
        if (!aText && !aHex)
            Fail(node, L"a " + Widen(szType) + L" value without its payload");
        bHex = static_cast<bool>(aHex);
        return aHex ? aHex.value() : aText.value();
    }

    std::string_view Text(pugi::xml_node node) const
    {
        bool bHex = false;
        return Payload(node, true, false, bHex);
    }

    template <class T>
    T Checked(pugi::xml_node node, std::optional<T> value, std::string_view svText) const
    {
        if (!value)
            Fail(node, L"bad " + Widen(node.attribute(TYPE_ATTR).value()) + L" text " + Quoted(svText));
        return *value;
    }

    std::string HexBytes(pugi::xml_node node, std::string_view svHex) const
    {
        std::optional<std::string> bytes = SsCodec::HexToBytes(svHex);
        if (!bytes)
            Fail(node, L"bad hexadecimal " + Quoted(svHex));
        return std::move(*bytes);
    }

    CAutoPtr<Value> ReadScalar(pugi::xml_node node, int nType) const
    {
        switch (nType) {
            case Value::STRING_T:
                return ReadString(node);
            case Value::BOOL_T:
                return QZPAR::CreateBool(Checked(node, SsCodec::ParseBool(Text(node)), Text(node)));
            case Value::INT_T:
                return QZPAR::CreateInt(Checked(node, SsCodec::ParseInt32(Text(node)), Text(node)));
            case Value::LONG_T:
                return QZPAR::CreateLong(Checked(node, SsCodec::ParseInt64(Text(node)), Text(node)));
            case Value::DATE_TIME_T:
                return ReadDateTime(node);
            case Value::DATE_T:
                return ReadDate(node);
            case Value::BINARY_T:
                return ReadBinary(node);
            case Value::FLOAT_T:
                return QZPAR::CreateFloat(Checked(node, SsCodec::ParseFloat(Text(node)), Text(node)));
            default:
                return QZPAR::CreateDouble(Checked(node, SsCodec::ParseDouble(Text(node)), Text(node)));
        }
    }

    CAutoPtr<Value> ReadString(pugi::xml_node node) const
    {
        bool bHex = false;
        const std::string_view sv = Payload(node, true, true, bHex);
        if (!bHex)
            return QZPAR::CreateString(std::wstring_view(Utf8ToWide(sv)));
        const std::wstring wstr = Checked(node, SsCodec::Utf16HexToWide(sv), sv);
        return QZPAR::CreateString(std::wstring_view(wstr));
    }

    CAutoPtr<Value> ReadDateTime(pugi::xml_node node) const
    {
        const int32_t nSeconds = Checked(node, SsCodec::ParseInt32(Text(node)), Text(node));
        // The value tree ends the process on a time below "no time": refuse it here instead.
        if (nSeconds < QZPAR::DateTimeValue::NO_TIME)
            Fail(node, L"DATE_TIME_T below -1: " + Quoted(Text(node)));
        return QZPAR::CreateDateTime(nSeconds);
    }

    CAutoPtr<Value> ReadDate(pugi::xml_node node) const
    {
        bool bHex = false;
        const std::string_view sv = Payload(node, true, true, bHex);
        const std::string strDate = bHex ? HexBytes(node, sv) : std::string(sv);
        if (strDate.find('\0') != std::string::npos)
            Fail(node, L"a DATE_T value with a NUL byte");
        return QZPAR::CreateDate(strDate.c_str());
    }

    CAutoPtr<Value> ReadBinary(pugi::xml_node node) const
    {
        bool bHex = false;
        const std::string strBytes = HexBytes(node, Payload(node, false, true, bHex));
        return QZPAR::CreateBinary(strBytes.data(), strBytes.size());
    }

    std::string_view m_svXml;
    const std::wstring& m_wstrOrigin;
};

// ---- writing ----

struct StringWriter : pugi::xml_writer
{
    void write(const void* pData, size_t nSize) override
    {
        m_str.append(static_cast<const char*>(pData), nSize);
    }
    std::string m_str;
};

class Writer
{
public:
    explicit Writer(const std::wstring& wstrOrigin) : m_wstrOrigin(wstrOrigin) {}

    std::string Write(const StorageContent& content)
    {
        pugi::xml_document doc;
        pugi::xml_node decl = doc.append_child(pugi::node_declaration);
        decl.append_attribute("version") = "1.0";
        decl.append_attribute("encoding") = "UTF-8";
        pugi::xml_node root = doc.append_child(ROOT_ELEMENT);
        root.append_attribute(FORMAT_ATTR) = FORMAT_VERSION;
        WriteProducts(root, content);
        StringWriter writer;
        doc.save(writer, "    ", pugi::format_indent, pugi::encoding_utf8);
        return std::move(writer.m_str);
    }

private:
    // Names from the product down to the value being written, for the error message.
    class PathScope
    {
    public:
        PathScope(std::vector<std::wstring>& vecPath, std::wstring_view wsvName) : m_vecPath(vecPath)
        {
            m_vecPath.emplace_back(wsvName);
        }
        ~PathScope() { m_vecPath.pop_back(); }
        PathScope(const PathScope&) = delete;
        PathScope& operator=(const PathScope&) = delete;

    private:
        std::vector<std::wstring>& m_vecPath;
    };

    [[noreturn]] void Fail(const std::wstring& wstrWhy) const
    {
        std::wstring wstrPath;
        for (const std::wstring& wstr : m_vecPath)
            wstrPath.append(wstrPath.empty() ? L"" : L"/").append(wstr);
        QZ_THROW(SsErr::MODULE, SsErr::VALUE_NOT_STORABLE, wstrPath, m_wstrOrigin, wstrWhy);
    }

    void WriteProducts(pugi::xml_node root, const StorageContent& content)
    {
        for (const auto& [wstrProduct, mapVersions] : content.m_mapProducts) {
            PathScope product(m_vecPath, wstrProduct);
            pugi::xml_node nodeProduct = AppendNamed(root, PRODUCT_ELEMENT, wstrProduct);
            for (const auto& [wstrVersion, mapSections] : mapVersions) {
                PathScope version(m_vecPath, wstrVersion);
                pugi::xml_node nodeVersion = AppendNamed(nodeProduct, VERSION_ELEMENT, wstrVersion);
                for (const auto& [wstrSection, pSection] : mapSections) {
                    PathScope section(m_vecPath, wstrSection);
                    WriteParams(AppendNamed(nodeVersion, SECTION_ELEMENT, wstrSection), pSection, 1);
                }
            }
        }
    }

    pugi::xml_node AppendNamed(pugi::xml_node parent, const char* szElement, std::wstring_view wsvName)
    {
        pugi::xml_node node = parent.append_child(szElement);
        if (SsCodec::IsXmlSafe(wsvName)) {
            node.append_attribute(NAME_ATTR) = WideToUtf8(wsvName).c_str();
            return node;
        }
        const std::optional<std::string> hex = SsCodec::WideToUtf16Hex(wsvName);
        if (!hex)
            Fail(L"the name has a character beyond U+10FFFF");
        node.append_attribute(NAME_HEX_ATTR) = hex->c_str();
        return node;
    }

    void WriteParams(pugi::xml_node node, QZPAR::Params* pParams, int nDepth)
    {
        if (nDepth > MAX_DEPTH)
            Fail(L"values nested deeper than " + std::to_wstring(MAX_DEPTH) +
                 L" levels (or a Params that contains itself)");
        if (!pParams)
            return;
        std::vector<std::wstring> vecNames;
        pParams->GetNames(vecNames);
        for (const std::wstring& wstrName : vecNames) {
            PathScope scope(m_vecPath, wstrName);
            CAutoPtr<Value> pValue;
            if (!pParams->GetValueNoThrow(wstrName.c_str(), &pValue))
                continue;  // removed by another thread since GetNames: nothing to keep
            WriteValue(AppendNamed(node, VALUE_ELEMENT, wstrName), pValue, nDepth);
        }
    }

    void WriteValue(pugi::xml_node node, Value* pValue, int nDepth)
    {
        const int nType = pValue->GetType();
        const char* szType = NameOfType(nType);
        if (!szType)
            Fail(L"unknown value type " + std::to_wstring(nType));
        node.append_attribute(TYPE_ATTR) = szType;
        switch (nType) {
            case Value::PARAMS_T:
                return WriteParamsValue(node, static_cast<QZPAR::ParamsValue*>(pValue), nDepth);
            case Value::ARRAY_T:
                return WriteArray(node, static_cast<QZPAR::ArrayValue*>(pValue), nDepth);
            default:
                return WriteScalar(node, pValue);
        }
    }

    void WriteParamsValue(pugi::xml_node node, QZPAR::ParamsValue* pValue, int nDepth)
    {
        CAutoPtr<QZPAR::Params> pNested;
        pValue->GetValue(&pNested);
        if (!pNested)
            node.append_attribute(NULL_ATTR) = NULL_TRUE;
        else
            WriteParams(node, pNested, nDepth + 1);
    }

    void WriteArray(pugi::xml_node node, QZPAR::ArrayValue* pArray, int nDepth)
    {
        if (nDepth + 1 > MAX_DEPTH)
            Fail(L"values nested deeper than " + std::to_wstring(MAX_DEPTH) +
                 L" levels (or an array that contains itself)");
        const size_t nSize = pArray->GetSize();
        for (size_t i = 0; i < nSize; ++i) {
            PathScope scope(m_vecPath, L"[" + std::to_wstring(i) + L"]");
            CAutoPtr<Value> pItem;
            pArray->GetAt(i, &pItem);
            pugi::xml_node nodeItem = node.append_child(ITEM_ELEMENT);
            if (pItem)
                WriteValue(nodeItem, pItem, nDepth + 1);
            else
                nodeItem.append_attribute(NULL_ATTR) = NULL_TRUE;
        }
    }

    void WriteScalar(pugi::xml_node node, Value* pValue)
    {
        switch (pValue->GetType()) {
            case Value::STRING_T:
                return WriteString(node, static_cast<QZPAR::StringValue*>(pValue));
            case Value::BOOL_T:
                return SetText(node, SsCodec::BoolToText(static_cast<QZPAR::BoolValue*>(pValue)->GetValue()));
            case Value::INT_T:
                return SetText(node, std::to_string(static_cast<QZPAR::IntValue*>(pValue)->GetValue()));
            case Value::LONG_T:
                return SetText(node, std::to_string(static_cast<QZPAR::LongValue*>(pValue)->GetValue()));
            case Value::DATE_TIME_T:
                return SetText(node, std::to_string(static_cast<QZPAR::DateTimeValue*>(pValue)->GetValue()));
            case Value::DATE_T:
                return WriteDate(node, static_cast<QZPAR::DateValue*>(pValue)->GetValue());
            case Value::BINARY_T:
                return WriteBinary(node, static_cast<QZPAR::BinaryValue*>(pValue));
            case Value::FLOAT_T:
                return SetText(node,
                               SsCodec::FloatToText(static_cast<QZPAR::FloatValue*>(pValue)->GetValue()));
            default:
                return SetText(node,
                               SsCodec::DoubleToText(static_cast<QZPAR::DoubleValue*>(pValue)->GetValue()));
        }
    }

    static void SetText(pugi::xml_node node, const std::string& strText)
    {
        node.append_attribute(TEXT_ATTR) = strText.c_str();
    }

    static void SetHex(pugi::xml_node node, const std::string& strHex)
    {
        node.append_attribute(HEX_ATTR) = strHex.c_str();
    }

    void WriteString(pugi::xml_node node, QZPAR::StringValue* pValue)
    {
        const std::wstring_view wsv(pValue->GetValue(), pValue->GetLength());
        if (SsCodec::IsXmlSafe(wsv))
            return SetText(node, WideToUtf8(wsv));
        const std::optional<std::string> hex = SsCodec::WideToUtf16Hex(wsv);
        if (!hex)
            Fail(L"the string has a character beyond U+10FFFF");
        SetHex(node, *hex);
    }

    static void WriteDate(pugi::xml_node node, const char* szDate)
    {
        const std::string_view sv(szDate);
        if (SsCodec::IsXmlSafe(sv))
            return SetText(node, std::string(sv));
        SetHex(node, SsCodec::BytesToHex(sv.data(), sv.size()));
    }

    static void WriteBinary(pugi::xml_node node, QZPAR::BinaryValue* pValue)
    {
        SetHex(node, SsCodec::BytesToHex(pValue->GetData(), pValue->GetSize()));
    }

    const std::wstring& m_wstrOrigin;
    std::vector<std::wstring> m_vecPath;
};

}  // namespace

StorageContent ParseStorage(std::string_view svXml, const std::wstring& wstrOrigin)
{
    RegisterSettingsStorageErrors();
    return Reader(svXml, wstrOrigin).Read();
}

std::string WriteStorage(const StorageContent& content, const std::wstring& wstrOrigin)
{
    RegisterSettingsStorageErrors();
    return Writer(wstrOrigin).Write(content);
}

}  // namespace QZSTD::SsXml

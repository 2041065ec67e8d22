// Typed JSON for Params, on JsonCpp.
#include "transport/paramsjson.h"

#include <json/json.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <sstream>

#include "std/error.h"
#include "std/par/paramshelpers.h"
#include "std/strconv.h"
#include "transport/errors.h"

namespace QZTRANSPORT {
namespace {

constexpr int MAX_DEPTH = 64;
const char BASE64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

[[noreturn]] void Bad(const std::string& strWhy)
{
    RegisterTransportErrors();
    QZ_THROW(MODULE, BAD_JSON, strWhy);
}

std::string Base64(const uint8_t* p, size_t n)
{
    std::string str;
    for (size_t i = 0; i < n; i += 3) {
        const uint32_t v = (p[i] << 16) | (i + 1 < n ? p[i + 1] << 8 : 0) | (i + 2 < n ? p[i + 2] : 0);
        str += BASE64[v >> 18];
        str += BASE64[(v >> 12) & 63];
        str += i + 1 < n ? BASE64[(v >> 6) & 63] : '=';
        str += i + 2 < n ? BASE64[v & 63] : '=';
    }
    return str;
}

std::vector<uint8_t> FromBase64(const std::string& str)
{
    if (str.size() % 4 != 0)
        Bad("base64 of a length that is not a multiple of 4");
    std::vector<uint8_t> vec;
    for (size_t i = 0; i < str.size(); i += 4) {
        uint32_t v = 0;
        int nPad = 0;
        for (size_t k = 0; k < 4; ++k) {
            const char c = str[i + k];
            const char* pAt = c ? std::strchr(BASE64, c) : nullptr;
            if (c == '=' && i + 4 == str.size() && k >= 2) {
                ++nPad;
                v <<= 6;
                continue;
            }
            if (!pAt || nPad > 0)
                Bad("a character that is not base64");
            v = (v << 6) | static_cast<uint32_t>(pAt - BASE64);
        }
        vec.push_back(static_cast<uint8_t>(v >> 16));
        if (nPad < 2)
            vec.push_back(static_cast<uint8_t>(v >> 8));
        if (nPad < 1)
            vec.push_back(static_cast<uint8_t>(v));
    }
    return vec;
}

Json::Value Floating(double d)
{
    if (std::isnan(d))
        return "NaN";
    if (std::isinf(d))
        return d > 0 ? "Infinity" : "-Infinity";
    return d;
}

double ReadFloating(const Json::Value& v)
{
    if (v.isNumeric())
        return v.asDouble();
    if (v.isString()) {
        const std::string str = v.asString();
        if (str == "NaN")
            return std::numeric_limits<double>::quiet_NaN();
        if (str == "Infinity")
            return std::numeric_limits<double>::infinity();
        if (str == "-Infinity")
            return -std::numeric_limits<double>::infinity();
    }
    Bad("a float or double that is no number");
}

Json::Value Encode(QZPAR::Params* pParams);

Json::Value Encode(QZPAR::Value* pValue)
{
    Json::Value v(Json::objectValue);
    switch (pValue->GetType()) {
        case QZPAR::Value::STRING_T: {
            const std::string str = QZSTD::WideToUtf8(QZPAR::GetStringValue(pValue));
            v["str"] = Json::Value(str.data(), str.data() + str.size());
            break;
        }
        case QZPAR::Value::BOOL_T:
            v["bool"] = QZPAR::GetBoolValue(pValue);
            break;
        case QZPAR::Value::INT_T:
            v["int"] = QZPAR::GetIntValue(pValue);
            break;
        case QZPAR::Value::LONG_T:
            v["long"] = std::to_string(QZPAR::GetLongValue(pValue));
            break;
        case QZPAR::Value::DATE_TIME_T:
            v["dt"] = QZPAR::GetDateTimeValue(pValue);
            break;
        case QZPAR::Value::DATE_T: {
            std::wstring wstr;
            for (unsigned char c : QZPAR::GetDateValue(pValue))
                wstr += static_cast<wchar_t>(c);
            const std::string str = QZSTD::WideToUtf8(wstr);
            v["date"] = Json::Value(str.data(), str.data() + str.size());
            break;
        }
        case QZPAR::Value::BINARY_T: {
            const std::vector<uint8_t> vec = QZPAR::GetBinaryValue(pValue);
            v["bin"] = Base64(vec.data(), vec.size());
            break;
        }
        case QZPAR::Value::FLOAT_T:
            v["float"] = Floating(QZPAR::GetFloatValue(pValue));
            break;
        case QZPAR::Value::DOUBLE_T:
            v["double"] = Floating(QZPAR::GetDoubleValue(pValue));
            break;
        case QZPAR::Value::PARAMS_T: {
            QZSTD::CAutoPtr<QZPAR::Params> pNested = QZPAR::GetParamsValue(pValue);
            v["params"] = pNested ? Encode(pNested.Get()) : Json::Value(Json::nullValue);
            break;
        }
        case QZPAR::Value::ARRAY_T: {
            QZSTD::CAutoPtr<QZPAR::ArrayValue> pArray = QZPAR::GetArrayValue(pValue);
            Json::Value a(Json::arrayValue);
            for (size_t n = 0; n < pArray->GetSize(); ++n) {
                QZSTD::CAutoPtr<QZPAR::Value> pItem;
                pArray->GetAt(n, &pItem);
                a.append(pItem ? Encode(pItem.Get()) : Json::Value(Json::nullValue));
            }
            v["array"] = a;
            break;
        }
        default:
            QZ_ASSERTION_FAILED("known value type");
    }
    return v;
}

Json::Value Encode(QZPAR::Params* pParams)
{
    Json::Value obj(Json::objectValue);
    std::vector<std::wstring> vecNames;
    pParams->GetNames(vecNames);
    for (const std::wstring& wstrName : vecNames) {
        QZSTD::CAutoPtr<QZPAR::Value> pValue;
        pParams->GetValue(wstrName.c_str(), &pValue);
        const std::string strName = QZSTD::WideToUtf8(wstrName);
        obj[strName] = pValue ? Encode(pValue.Get()) : Json::Value(Json::nullValue);
    }
    return obj;
}

std::wstring Text(const Json::Value& v)
{
    if (!v.isString())
        Bad("a text that is no string");
    const char* pBegin = nullptr;
    const char* pEnd = nullptr;
    v.getString(&pBegin, &pEnd);
    return QZSTD::Utf8ToWide(std::string_view(pBegin, static_cast<size_t>(pEnd - pBegin)));
}

QZSTD::CAutoPtr<QZPAR::Params> Decode(const Json::Value& obj, int nDepth);

QZSTD::CAutoPtr<QZPAR::Value> DecodeValue(const Json::Value& v, int nDepth)
{
    if (!v.isObject() || v.size() != 1)
        Bad("a value that is not an object with one member");
    const std::string strType = v.getMemberNames().front();
    const Json::Value& x = v[strType];
    if (strType == "str")
        return QZPAR::CreateString(Text(x));
    if (strType == "bool" && x.isBool())
        return QZPAR::CreateBool(x.asBool());
    if (strType == "int" && x.isInt())
        return QZPAR::CreateInt(x.asInt());
    // -1 is "none"; anything below is no time at all.
    if (strType == "dt" && x.isInt() && x.asInt() >= -1)
        return QZPAR::CreateDateTime(x.asInt());
    if (strType == "long" && x.isString()) {
        const std::string str = x.asString();
        size_t nUsed = 0;
        long long n = 0;
        try {
            n = std::stoll(str, &nUsed);
        } catch (const std::exception&) {
            Bad("a long that is no decimal number in range");
        }
        if (nUsed != str.size() || str.empty() || str[0] == '+' || str[0] == ' ')
            Bad("a long that is no decimal number");
        return QZPAR::CreateLong(n);
    }
    if (strType == "date") {
        std::string strBytes;
        for (wchar_t c : Text(x)) {
            if (static_cast<uint32_t>(c) > 0xFF || c == 0)
                Bad("a date with a NUL character or one above U+00FF");
            strBytes += static_cast<char>(c);
        }
        return QZPAR::CreateDate(strBytes.c_str());
    }
    if (strType == "bin" && x.isString()) {
        const std::vector<uint8_t> vec = FromBase64(x.asString());
        return QZPAR::CreateBinary(vec.data(), vec.size());
    }
    if (strType == "float")
        return QZPAR::CreateFloat(static_cast<float>(ReadFloating(x)));
    if (strType == "double")
        return QZPAR::CreateDouble(ReadFloating(x));
    if (strType == "params")
        return QZPAR::CreateParamsValue(x.isNull() ? nullptr : Decode(x, nDepth + 1).Get());
    if (strType == "array" && x.isArray()) {
        if (nDepth >= MAX_DEPTH)
            Bad("nested too deeply");
        QZSTD::CAutoPtr<QZPAR::ArrayValue> pArray = QZPAR::CreateArray(x.size());
        for (Json::ArrayIndex n = 0; n < x.size(); ++n)
            if (!x[n].isNull())
                pArray->SetAt(n, DecodeValue(x[n], nDepth + 1).Get());
        return pArray;
    }
    Bad("an unknown type or a value of the wrong kind: \"" + strType + "\"");
}

QZSTD::CAutoPtr<QZPAR::Params> Decode(const Json::Value& obj, int nDepth)
{
    if (!obj.isObject())
        Bad("a Params that is no object");
    if (nDepth >= MAX_DEPTH)
        Bad("nested too deeply");
    QZSTD::CAutoPtr<QZPAR::Params> pParams = QZPAR::CreateParams();
    for (const std::string& strName : obj.getMemberNames()) {
        // Two names that are not valid UTF-8 may decode to the same text.
        const std::wstring wstrName = QZSTD::Utf8ToWide(strName);
        if (wstrName.empty() || wstrName.find(L'\0') != std::wstring::npos)
            Bad("an empty name, or a name with a NUL character");
        if (pParams->DoesExist(wstrName.c_str()))
            Bad("the same name twice");
        pParams->AddValue(wstrName.c_str(), DecodeValue(obj[strName], nDepth).Get());
    }
    return pParams;
}

}  // namespace

std::string ParamsToJson(QZPAR::Params* pParams)
{
    QZ_CHECK_ARG(pParams, "pParams");
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["emitUTF8"] = true;
    builder["precision"] = 17;
    return Json::writeString(builder, Encode(pParams));
}

QZSTD::CAutoPtr<QZPAR::Params> JsonToParams(const std::string& strJson)
{
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["stackLimit"] = MAX_DEPTH * 3;
    std::unique_ptr<Json::CharReader> pReader(builder.newCharReader());
    Json::Value root;
    std::string strErrors;
    bool bParsed = false;
    try {
        bParsed = pReader->parse(strJson.data(), strJson.data() + strJson.size(), &root, &strErrors);
    } catch (const Json::Exception& e) {
        // The reader raises rather than answers when the nesting exceeds its stack limit.
        strErrors = e.what();
    }
    if (!bParsed)
        Bad("not JSON: " + strErrors.substr(0, strErrors.find('\n')));
    return Decode(root, 0);
}

}  // namespace QZTRANSPORT

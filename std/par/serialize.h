// Binary stream form of a Params, for files and for passing trees between processes. The format is
// described in docs/params-binary-format.md; a stream written on Windows (16-bit wchar_t) and one
// written on Linux (32-bit wchar_t) are byte for byte the same.
//
// The reader treats its input as hostile: it never reads outside the input, allocates only what
// the input's own size can justify, bounds the nesting depth, and rejects anything malformed with a
// QZPARBIN error (std/par/errors.h) that names the fault and its byte offset.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "std/par/params.h"

namespace QZPAR {

inline constexpr uint8_t PARAMS_STREAM_MAGIC[4] = {'Q', 'Z', 'P', 'B'};
inline constexpr uint16_t PARAMS_STREAM_VERSION = 1;
inline constexpr size_t PARAMS_STREAM_HEADER_SIZE = 12;
// Nesting levels of Params and arrays, the root Params being level 1. Bounds the reader's recursion.
inline constexpr int PARAMS_STREAM_MAX_DEPTH = 64;

// Replaces vecOut's content with the stream of pParams. A null pParams is error 1187 "pParams"; a
// tree nested deeper than PARAMS_STREAM_MAX_DEPTH (or one that contains itself) is refused.
void SerializeParams(Params* pParams, std::vector<uint8_t>& vecOut);

// A new, writable Params read from exactly nSize bytes.
QZSTD::CAutoPtr<Params> DeserializeParams(const void* pData, size_t nSize);

// The file is written whole (replaced when it exists).
void WriteParamsFile(const std::wstring& wstrPath, Params* pParams);
// A missing file is QZSTD error 1205 with the path as argument.
QZSTD::CAutoPtr<Params> ReadParamsFile(const std::wstring& wstrPath);

}  // namespace QZPAR

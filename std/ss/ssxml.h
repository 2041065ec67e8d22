// The settings storage file format: the whole content of a storage as a map of products, versions
// and sections, read from and written to XML text. No I/O here; docs/settings-storage.md describes
// the layout.
//
// The reader checks the whole file before anything is returned, so a storage that is malformed
// anywhere is refused as a whole (NOT_XML or BAD_CONTENT, with the line) rather than half read and
// then written back without the part that could not be understood.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>

#include "std/par/params.h"
#include "std/qzbase.h"
#include "std/ss/sscodec.h"

namespace QZSTD::SsXml {

// Nesting of Params and arrays below a section (the section's own entries are level 1). Deeper
// values are refused on writing and on reading, which also keeps a corrupted or hostile file from
// exhausting the stack, and stops a Params that contains itself.
inline constexpr int MAX_DEPTH = 100;
// A storage holds settings, not data: a larger file is refused instead of being read into memory.
inline constexpr size_t MAX_FILE_BYTES = 64u << 20;

// Products, versions and sections are kept in ordinal UTF-16 order, the value tree's own name
// order, so the file looks the same whichever platform wrote it.
using SectionMap = std::map<std::wstring, CAutoPtr<QZPAR::Params>, SsCodec::Utf16Less>;
using VersionMap = std::map<std::wstring, SectionMap, SsCodec::Utf16Less>;
using ProductMap = std::map<std::wstring, VersionMap, SsCodec::Utf16Less>;

struct StorageContent
{
    ProductMap m_mapProducts;
};

// wstrOrigin names the file in error messages.
StorageContent ParseStorage(std::string_view svXml, const std::wstring& wstrOrigin);
// UTF-8 XML text. VALUE_NOT_STORABLE for a value nested too deeply or a character that UTF-16
// cannot carry.
std::string WriteStorage(const StorageContent& content, const std::wstring& wstrOrigin);

}  // namespace QZSTD::SsXml

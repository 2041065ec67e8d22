// The settings storage: an XML file holding products, their versions, the versions' sections and,
// in each section, a Params. Several processes share one file (the management agent, this agent,
// the agent started again to deliver a result): every change takes the file's exclusive lock,
// reads the file again, applies the change and replaces the file as a whole, so no process loses
// another's update and a crash in the middle of a write leaves the previous content. Reads take the
// shared lock. docs/settings-storage.md describes the file layout and the protocol.
//
// Errors: QZSTD 1205 (the file does not exist, with the path), QZSTD 1192 (product or version
// missing), QZSTD 1186 (section missing), QZSTD 1187 (an empty name or a null Params); everything
// about the file itself (malformed, locked too long, cannot be written) is module "QZSS", see
// std/ss/sserrors.h. A failed call changes nothing in the file.
//
// Every call goes to the file, so a storage object never shows stale content, and one object may
// be used from several threads at once.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "std/par/params.h"
#include "std/qzbase.h"

namespace QZSTD {

struct SettingsStorage : QZBase
{
    // Opens an existing storage for reading; the whole file is read and checked once here, so a
    // malformed storage is reported at once. QZSTD 1205 when the file does not exist. A change
    // through the returned object raises QZSS READ_ONLY.
    static CAutoPtr<SettingsStorage> OpenReadOnly(const std::wstring& wstrPath);
    // Opens a storage for reading and writing, creating the folder chain and an empty storage when
    // the file is missing. An existing file that is malformed is reported and left untouched.
    static CAutoPtr<SettingsStorage> OpenOrCreate(const std::wstring& wstrPath);
    // Reads XML text through the same reader as a file and returns the storage written back in
    // its canonical form; raises the same errors as a malformed file. Reading the canonical form
    // again gives the same text. For fuzzing and tests; touches no file.
    static std::string ParseForTest(const char* pData, size_t nBytes);

    virtual const std::wstring& GetPath() const = 0;
    virtual bool IsReadOnly() const = 0;

    // Names in the value tree's name order (ordinal UTF-16). EnumVersions raises 1192 for a
    // missing product, EnumSections 1192 for a missing product or version.
    virtual std::vector<std::wstring> EnumProducts() = 0;
    virtual std::vector<std::wstring> EnumVersions(const std::wstring& wstrProduct) = 0;
    virtual std::vector<std::wstring> EnumSections(const std::wstring& wstrProduct,
                                                   const std::wstring& wstrVersion) = 0;

    virtual bool SectionExists(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                               const std::wstring& wstrSection) = 0;
    // Creates whatever is missing of product, version and section; an existing section is kept
    // as it is (not emptied), and then the file is not written at all.
    virtual void CreateSection(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                               const std::wstring& wstrSection) = 0;
    // A new Params with the section's entries, owned by the caller. 1192 when product or version
    // is missing, 1186 when the section is.
    virtual CAutoPtr<QZPAR::Params> ReadSection(const std::wstring& wstrProduct,
                                                const std::wstring& wstrVersion,
                                                const std::wstring& wstrSection) = 0;
    // Stores every entry of pEntries in the section, each replacing the stored entry of the same
    // name as a whole; entries pEntries does not name stay. The section must exist (1192/1186,
    // as ReadSection): a misspelt name fails instead of quietly starting a new section.
    virtual void ReplaceEntries(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                                const std::wstring& wstrSection, QZPAR::Params* pEntries) = 0;
    // As ReplaceEntries, except where both the stored and the new entry are (non-null) nested
    // Params: those are merged by the same rule, level by level, so nested entries the new value
    // does not name stay. This is what keeps per-task entries ({task id: value}) of other tasks
    // in one section.
    virtual void MergeEntries(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                              const std::wstring& wstrSection, QZPAR::Params* pEntries) = 0;
    // Removes the named entries of the section; names that are not there are ignored. The section
    // must exist (1192/1186).
    virtual void DeleteEntries(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                               const std::wstring& wstrSection,
                               const std::vector<std::wstring>& vecNames) = 0;
    // Removes the section with its entries; false (and the file unchanged) when it was not there.
    // The product and the version stay, even when left empty.
    virtual bool DeleteSection(const std::wstring& wstrProduct, const std::wstring& wstrVersion,
                               const std::wstring& wstrSection) = 0;
};

// The environment variable that overrides GetLocalSettingsStoragePath (tests, demos, a machine
// with an unusual layout).
inline constexpr const char* LOCAL_SS_PATH_ENV = "QZ_LOCAL_SS_PATH";

// The management agent's local settings storage, where it keeps its own state (for example its
// current server id: product "1103", version "1.0.0.0", section "global", value "QZNAG_SRVID").
// The value of QZ_LOCAL_SS_PATH when that is set and not empty; otherwise
//   Windows: <common application data>\QZ\SettingsStorage\local_ss.xml
//            (%ProgramData%, normally C:\ProgramData)
//   Linux:   /var/opt/qz/settingsstorage/local_ss.xml
std::wstring GetLocalSettingsStoragePath();

}  // namespace QZSTD

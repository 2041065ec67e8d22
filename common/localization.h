// The language the administration server speaks, as the agent finds it in "qzrimsg.dat" beside its own
// executable, and the language-specific ini of a package that follows from it.
#pragma once

#include <string>

#include "std/par/params.h"

namespace QZRI {

// The file in the agent's folder that holds the server's messages and language (a binary Params file).
inline constexpr const wchar_t* c_szLocalizationDataFile = L"qzrimsg.dat";
// Its string value with the server's language tag ("en-US", "de-DE", ...).
inline constexpr const wchar_t* c_szServerLanguageTag = L"QZRI_SERVER_LANGUAGE_TAG";
// The folder beside the package description that holds one "<tag>.ini" per language.
inline constexpr const wchar_t* c_szQpdLocFolder = L"qpd.loc";

// The tree of "qzrimsg.dat" in wstrAgentFolder. QZError 1205 (QZSTD) when the file is missing, the
// value tree's errors when it is not a Params file.
QZSTD::CAutoPtr<QZPAR::Params> GetLocalizationData(const std::wstring& wstrAgentFolder);

// The server's language tag, as it stands in the file. Empty when the value is absent, and also when
// the file is missing, unreadable or holds the value with another type (traced): a package then falls
// back to its own language, which is better than failing the installation over a message file.
std::wstring GetLanguageTagFromLocalizationData(const std::wstring& wstrAgentFolder);

// The language-specific ini of the package: <qpd folder>/"qpd.loc"/<lower-cased tag>".ini". The file
// need not exist; the caller checks. With no tag the name is just ".ini", which no package holds.
std::wstring GetQpdLocIniFile(const std::wstring& wstrQpdPath, const std::wstring& wstrAgentFolder);

// The system's lower-casing of a wide string: CharLowerBuffW on Windows (the user's locale); elsewhere
// FoldIniChar (ASCII, Latin-1, Greek, Cyrillic), which covers every language tag.
std::wstring SystemLowerCase(std::wstring wstrText);

}  // namespace QZRI

// The agent's password store: passwords are kept protected wherever they are stored (the management
// agent's settings, package data) and are unprotected only in memory, when they are about to be used.
//
// Windows: the data protection of the system, in machine scope (the agent runs as a service and as the
// administrator who started it; both must read what either stored). Elsewhere: AES-256-GCM under a
// machine key of 32 random bytes kept in a file that only its owner may read (QZ_MACHINE_KEY_PATH, else
// /var/opt/qz/machine.key), created on first use; a key file that others may read is refused. Protected
// bytes are "QZP1", a 12-byte nonce, the cipher text and the 16-byte tag.
#pragma once

#include <string>
#include <string_view>

namespace QZSTD {

std::string ProtectData(std::string_view svClear);
// Raises 1187 (QZSTD) "protected data" for data that was changed, is not protected data, or was
// protected with another key; a system error when the key cannot be read.
std::string UnprotectData(std::string_view svProtected);

// A password as it is stored: the upper-case hexadecimal text of its protected UTF-16LE bytes.
std::wstring ProtectPassword(const std::wstring& wstrPassword);
std::wstring UnprotectPassword(const std::wstring& wstrProtectedHex);

}  // namespace QZSTD

// The administration server that manages this computer now, as the management agent recorded it in
// its local settings storage (product "1103", version "1.0.0.0", section "global", value
// "QZNAG_SRVID"). Installations that must not run on a host of another server compare it with the
// package's server id.
#pragma once

#include <string>

namespace QZRI {

class ServerIdSource
{
public:
    virtual ~ServerIdSource() = default;
    // The current server id; empty when it is not known. Never raises: a host without a management
    // agent simply has no current server.
    virtual std::wstring GetCurrentServerId() = 0;
};

// Reads the id from the settings storage file at the given path (normally
// QZSTD::GetLocalSettingsStoragePath()). A missing file, section or value, or a storage that cannot be
// read, gives an empty id with a trace line saying why.
class LocalStorageServerId : public ServerIdSource
{
public:
    explicit LocalStorageServerId(std::wstring wstrStoragePath)
        : m_wstrStoragePath(std::move(wstrStoragePath))
    {
    }
    std::wstring GetCurrentServerId() override;

private:
    std::wstring m_wstrStoragePath;
};

}  // namespace QZRI

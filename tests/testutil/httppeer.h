// The small HTTP server of the transfer tests (tests/transport/httppeer.py, run with python3), started on
// a free port of 127.0.0.1 and stopped at the end. POSIX only: a test that includes it defines
// QZ_HTTP_PEER as the script's path.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "std/strconv.h"

namespace QZTEST {

// The peer serving a folder, stopped at the end.
class HttpPeer
{
public:
    // Over TLS when a certificate and its key are given (urls then name "localhost").
    explicit HttpPeer(const std::wstring& wstrFolder, const std::string& strCert = {},
                      const std::string& strKey = {})
        : m_strScheme(strCert.empty() ? "http://127.0.0.1:" : "https://localhost:")
    {
        int fds[2];
        if (pipe(fds) != 0)
            throw std::runtime_error("pipe");
        m_pid = fork();
        if (m_pid == 0) {
            dup2(fds[1], 1);
            close(fds[0]);
            const std::string strFolder = QZSTD::WideToUtf8(wstrFolder);
            // Without a certificate the arguments end after the folder.
            execlp("python3", "python3", QZ_HTTP_PEER, strFolder.c_str(),
                   strCert.empty() ? nullptr : strCert.c_str(), strKey.c_str(), nullptr);
            _exit(127);
        }
        close(fds[1]);
        FILE* pOut = fdopen(fds[0], "r");
        if (!pOut || fscanf(pOut, "%d", &m_nPort) != 1)
            throw std::runtime_error("the HTTP peer did not start");
        fclose(pOut);
    }
    ~HttpPeer()
    {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    std::string Url(const std::string& strPath) const
    {
        return m_strScheme + std::to_string(m_nPort) + strPath;
    }

private:
    std::string m_strScheme;
    pid_t m_pid = -1;
    int m_nPort = 0;
};

}  // namespace QZTEST

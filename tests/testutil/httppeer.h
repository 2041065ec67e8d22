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
    explicit HttpPeer(const std::wstring& wstrFolder)
    {
        int fds[2];
        if (pipe(fds) != 0)
            throw std::runtime_error("pipe");
        m_pid = fork();
        if (m_pid == 0) {
            dup2(fds[1], 1);
            close(fds[0]);
            execlp("python3", "python3", QZ_HTTP_PEER, QZSTD::WideToUtf8(wstrFolder).c_str(), nullptr);
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
        return "http://127.0.0.1:" + std::to_string(m_nPort) + strPath;
    }

private:
    pid_t m_pid = -1;
    int m_nPort = 0;
};

}  // namespace QZTEST

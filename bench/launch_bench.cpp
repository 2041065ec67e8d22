// Wake-up latency of the waiters: the time from a child's last instruction before _exit to the moment
// the waiter returns, for QZRI::LaunchAsync in mode 0 and mode 1 against a bare blocking waitpid on the
// same kind of child in the same process. The child is this executable re-run with QZ_BENCH_CHILD set:
// it sleeps a little (so the waiter is already blocked), writes CLOCK_MONOTONIC nanoseconds to the
// file named by QZ_BENCH_STAMP and exits. Reported as the counter wake_latency_us (mean per child).
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "common/rilaunch.h"
#include "std/par/paramshelpers.h"

extern char** environ;

namespace {

constexpr int CHILD_SLEEP_MS = 20;

long long NowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

const bool g_bChild = [] {
    const char* szStamp = std::getenv("QZ_BENCH_STAMP");
    if (!std::getenv("QZ_BENCH_CHILD") || !szStamp)
        return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(CHILD_SLEEP_MS));
    if (FILE* f = std::fopen(szStamp, "w")) {
        std::fprintf(f, "%lld\n", NowNs());
        std::fclose(f);
    }
    ::_exit(0);
}();

std::string StampPath()
{
    return (std::filesystem::temp_directory_path() / ("qz_bench_stamp_" + std::to_string(::getpid())))
        .string();
}

long long ReadStamp(const std::string& strPath)
{
    long long n = 0;
    std::ifstream(strPath) >> n;
    return n;
}

std::string SelfPath()
{
    return std::filesystem::read_symlink("/proc/self/exe").string();
}

void BM_BareWaitpid(benchmark::State& state)
{
    const std::string strStamp = StampPath();
    ::setenv("QZ_BENCH_STAMP", strStamp.c_str(), 1);
    std::string strSelf = SelfPath();
    double dTotalUs = 0;
    for (auto _ : state) {
        ::setenv("QZ_BENCH_CHILD", "1", 1);
        char* argv[] = {strSelf.data(), nullptr};
        pid_t pid = 0;
        if (::posix_spawn(&pid, strSelf.c_str(), nullptr, nullptr, argv, environ) != 0) {
            state.SkipWithError("posix_spawn failed");
            break;
        }
        ::unsetenv("QZ_BENCH_CHILD");
        int nStatus = 0;
        ::waitpid(pid, &nStatus, 0);
        const long long nWoken = NowNs();
        dTotalUs += static_cast<double>(nWoken - ReadStamp(strStamp)) / 1000.0;
    }
    state.counters["wake_latency_us"] = benchmark::Counter(dTotalUs, benchmark::Counter::kAvgIterations);
    std::filesystem::remove(strStamp);
}

void BM_JobWaiter(benchmark::State& state)
{
    const int nMode = static_cast<int>(state.range(0));
    const std::string strStamp = StampPath();
    QZSTD::CAutoPtr<QZPAR::Params> pEnv = QZPAR::CreateParams();
    QZPAR::SetStringValue(pEnv, L"QZ_BENCH_CHILD", L"1");
    QZPAR::SetStringValue(pEnv, L"QZ_BENCH_STAMP", std::wstring(strStamp.begin(), strStamp.end()));
    const std::string strSelf = SelfPath();
    QZRI::LaunchOptions options;
    options.m_wstrCommandLine = L"\"" + std::wstring(strSelf.begin(), strSelf.end()) + L"\"";
    options.m_pEnvironmentAddition = pEnv;
    options.m_nWaitMode = nMode;
    double dTotalUs = 0;
    for (auto _ : state) {
        QZSTD::CAutoPtr<QZSTD::LaunchWaiter> pWaiter;
        QZRI::LaunchAsync(options, &pWaiter);
        pWaiter->Wait(-1);
        const long long nWoken = NowNs();
        dTotalUs += static_cast<double>(nWoken - ReadStamp(strStamp)) / 1000.0;
    }
    state.counters["wake_latency_us"] = benchmark::Counter(dTotalUs, benchmark::Counter::kAvgIterations);
    std::filesystem::remove(strStamp);
}

}  // namespace

BENCHMARK(BM_BareWaitpid)->Unit(benchmark::kMillisecond)->Iterations(50);
BENCHMARK(BM_JobWaiter)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(50);

// The agent's overhead: a whole silent run of the agent on a package whose setup does nothing
// (BM_AgentRun) against the same setup program started directly (BM_SetupDirect). Both start their
// program from a package folder of their own with posix_spawn and wait for it; scripts/bench.sh
// interleaves their repetitions and bench/ratios.py prints the difference of the two.
//
// The package folder is laid out as the administration server lays it out: the agent copied beside
// package.qpd and the example setup copied as setup.exe. The trace goes to a private folder
// (QZCSAK_SYSTEMP_PATH) and the management agent's storage is a private file that does not exist
// (QZ_LOCAL_SS_PATH), so a run touches nothing outside the benchmark's temporary folder. The folder is
// made once before the timed loop and reused: every run overwrites the same files (setup-ran.txt,
// setup.log) and the trace keeps a bounded number of generations, so each iteration finds the same
// state after the first.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

extern char** environ;

namespace {

namespace fs = std::filesystem;

// A folder of its own under the temporary folder, removed with everything in it.
class BenchFolder
{
public:
    BenchFolder()
    {
        std::string strTemplate = (fs::temp_directory_path() / "qz_agent_bench_XXXXXX").string();
        if (::mkdtemp(strTemplate.data()))
            m_path = strTemplate;
    }
    ~BenchFolder()
    {
        std::error_code ec;
        if (!m_path.empty())
            fs::remove_all(m_path, ec);
    }
    BenchFolder(const BenchFolder&) = delete;
    BenchFolder& operator=(const BenchFolder&) = delete;

    bool Ok() const { return !m_path.empty(); }
    const fs::path& Path() const { return m_path; }

private:
    fs::path m_path;
};

// This process's environment with the agent's trace folder and settings storage replaced.
class ChildEnvironment
{
public:
    ChildEnvironment(const std::string& strTraceFolder, const std::string& strSsPath)
    {
        for (char** pp = environ; *pp; ++pp) {
            const std::string str = *pp;
            if (str.rfind("QZCSAK_SYSTEMP_PATH=", 0) != 0 && str.rfind("QZ_LOCAL_SS_PATH=", 0) != 0)
                m_vecStrings.push_back(str);
        }
        m_vecStrings.push_back("QZCSAK_SYSTEMP_PATH=" + strTraceFolder);
        m_vecStrings.push_back("QZ_LOCAL_SS_PATH=" + strSsPath);
        for (std::string& str : m_vecStrings)
            m_vecPointers.push_back(str.data());
        m_vecPointers.push_back(nullptr);
    }

    char** Get() { return m_vecPointers.data(); }

private:
    std::vector<std::string> m_vecStrings;
    std::vector<char*> m_vecPointers;
};

// Starts the program in the folder with the arguments and waits for it: its exit code, or -1 when it
// could not be started or did not exit normally.
int SpawnAndWait(const std::string& strExe, const std::string& strCurDir, std::vector<std::string> vecArgs,
                 char** envp)
{
    std::vector<char*> vecArgv;
    std::string strArgv0 = strExe;
    vecArgv.push_back(strArgv0.data());
    for (std::string& str : vecArgs)
        vecArgv.push_back(str.data());
    vecArgv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addchdir_np(&actions, strCurDir.c_str());
    pid_t pid = 0;
    const int nError = ::posix_spawn(&pid, strExe.c_str(), &actions, nullptr, vecArgv.data(), envp);
    ::posix_spawn_file_actions_destroy(&actions);
    if (nError != 0)
        return -1;
    int nStatus = 0;
    if (::waitpid(pid, &nStatus, 0) != pid || !WIFEXITED(nStatus))
        return -1;
    return WEXITSTATUS(nStatus);
}

// A package folder with the example setup as setup.exe, and, for the agent's run, the agent beside
// its package description; the trace folder and the storage path beside the package folder.
struct BenchPackage
{
    explicit BenchPackage(bool bWithAgent)
    {
        if (!m_folder.Ok())
            return;
        m_pkg = m_folder.Path() / "pkg";
        m_trace = m_folder.Path() / "trace";
        std::error_code ec;
        fs::create_directory(m_pkg, ec);
        fs::create_directory(m_trace, ec);
        fs::copy_file(QZ_EXAMPLE_SETUP_PATH, m_pkg / "setup.exe", ec);
        if (ec)
            return;
        if (bWithAgent) {
            fs::copy_file(QZRIWRAP_EXE_PATH, m_pkg / "qzriwrap", ec);
            if (ec)
                return;
            std::ofstream(m_pkg / "package.qpd", std::ios::binary) << "[Setup]\r\nExecutable=setup.exe\r\n";
        }
        m_bReady = true;
    }

    bool SetupRan() const { return fs::exists(m_pkg / "setup-ran.txt"); }

    BenchFolder m_folder;
    fs::path m_pkg;
    fs::path m_trace;
    bool m_bReady = false;
};

void RunTimed(benchmark::State& state, BenchPackage& package, const std::string& strExe,
              const std::vector<std::string>& vecArgs)
{
    if (!package.m_bReady) {
        state.SkipWithError("the package folder could not be made");
        return;
    }
    ChildEnvironment env(package.m_trace.string(), (package.m_folder.Path() / "local_ss.xml").string());
    const std::string strCurDir = package.m_pkg.string();
    for (auto _ : state) {
        const int nExit = SpawnAndWait(strExe, strCurDir, vecArgs, env.Get());
        if (nExit != 0) {
            state.SkipWithError(("exit code " + std::to_string(nExit) + " instead of 0").c_str());
            break;
        }
    }
    if (!package.SetupRan())
        state.SkipWithError("the setup did not run (no setup-ran.txt)");
}

void BM_SetupDirect(benchmark::State& state)
{
    BenchPackage package(false);
    RunTimed(state, package, (package.m_pkg / "setup.exe").string(), {});
}

void BM_AgentRun(benchmark::State& state)
{
    BenchPackage package(true);
    RunTimed(state, package, (package.m_pkg / "qzriwrap").string(), {"/s"});
}

}  // namespace

// Many short repetitions, so that --benchmark_enable_random_interleaving mixes the two finely and a
// noisy moment of the machine falls on both.
BENCHMARK(BM_SetupDirect)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20)->Repetitions(10);
BENCHMARK(BM_AgentRun)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(20)->Repetitions(10);

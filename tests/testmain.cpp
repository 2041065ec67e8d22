// Shared main of the test executables. When QZ_TEST_RAN_FILE is set (the Wine runner sets it), the
// number of tests that ran is written there at the end, so that a runner can tell a real pass from an
// executable that exited 0 without running (as a 32-bit exe does under a 64-bit-only Wine).
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#ifdef _WIN32
#include <windows.h>
#endif

int main(int argc, char** argv)
{
#ifdef _WIN32
    // Wine starts its desktop process (explorer.exe /desktop) for the first program that needs a window,
    // as that program's child, and it runs until the Wine server ends. Started by a program inside a job
    // (a new console's window is enough), it would keep the job from ever emptying and every wait for the
    // whole job would time out. Asking for the desktop here starts it outside any job; on Windows this
    // is a plain lookup.
    GetDesktopWindow();
#endif
    testing::InitGoogleTest(&argc, argv);
    const int rc = RUN_ALL_TESTS();
    if (const char* szFile = std::getenv("QZ_TEST_RAN_FILE")) {
        if (FILE* f = std::fopen(szFile, "w")) {
            const testing::UnitTest& u = *testing::UnitTest::GetInstance();
            std::fprintf(f, "ran=%d failed=%d rc=%d\n", u.test_to_run_count(), u.failed_test_count(), rc);
            std::fclose(f);
        }
    }
    return rc;
}

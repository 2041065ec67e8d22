// The archive reader on arbitrary bytes: it may refuse them, but it must never crash, hang, or write
// anything outside the folder it is given.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "std/archive.h"
#include "std/error.h"

namespace {

namespace fs = std::filesystem;

const fs::path& Root()
{
    static const fs::path root = fs::temp_directory_path() / ("qz_fuzz_archive_" + std::to_string(getpid()));
    return root;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize)
{
    const fs::path root = Root();
    fs::remove_all(root);
    fs::create_directories(root / "inside");
    {
        std::ofstream(root / "in.zip", std::ios::binary)
            .write(reinterpret_cast<const char*>(pData), static_cast<std::streamsize>(nSize));
    }
    try {
        QZSTD::ExtractArchive((root / "in.zip").wstring(), (root / "inside" / "out").wstring());
    } catch (const QZSTD::QZError&) {
    } catch (const fs::filesystem_error&) {
    }
    // Only the archive and the destination's parent may be in the root, and only "out" in that parent.
    for (const fs::directory_entry& e : fs::directory_iterator(root))
        if (e.path().filename() != "in.zip" && e.path().filename() != "inside")
            std::abort();
    for (const fs::directory_entry& e : fs::directory_iterator(root / "inside"))
        if (e.path().filename() != "out")
            std::abort();
    return 0;
}

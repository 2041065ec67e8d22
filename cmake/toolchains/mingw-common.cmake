# The -posix compilers give std::thread and std::mutex (winpthread, linked statically).
set(CMAKE_C_COMPILER ${QZ_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QZ_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${QZ_MINGW_TRIPLET}-windres)

if(DEFINED ENV{QZ_CACHE_DIR})
  set(QZ_CACHE_DIR "$ENV{QZ_CACHE_DIR}")
else()
  set(QZ_CACHE_DIR "$ENV{HOME}/.cache/qzriwrap")
endif()
set(QZ_WIN_DEPS_DIR "${QZ_CACHE_DIR}/deps/${QZ_MINGW_TRIPLET}")

set(CMAKE_FIND_ROOT_PATH /usr/${QZ_MINGW_TRIPLET} ${QZ_WIN_DEPS_DIR})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Tests run under Wine through this wrapper (it picks the 32- or 64-bit loader and refuses a run
# that did not really execute the tests).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine-run.sh)

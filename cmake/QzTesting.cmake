# qz_add_test(<name> SOURCES ... LIBS ...): one test executable per module.
# Natively each GoogleTest case becomes its own CTest test. For Windows the whole executable is one
# CTest test run under Wine by scripts/wine-run.sh, which fails the test unless the executable
# really ran (a 32-bit exe under a 64-bit-only Wine exits 0 without running anything).
include(GoogleTest)

function(qz_add_test name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  target_link_libraries(${name} PRIVATE qz_testmain ${T_LIBS} qz::gmock qz::gtest)
  if(WIN32)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 ENVIRONMENT QZ_EXPECT_TEST_REPORT=1)
  else()
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
  endif()
endfunction()

# qz_test_msis(<target> WXS <file> PREFIX <p> VARIANTS <v>... UPGRADE_CODES <guid>... [DEFINES ...]
#              [DEPENDS ...]): 64-bit test packages that wixl (msitools) builds from one .wxs, one per
# variant: <binary dir>/<p><v>.msi with -D Variant=<v> and -D UpgradeCode=<that variant's code>, plus
# DEFINES, where "@VARIANT@" stands for the variant. wixl runs in the .wxs's folder, which its sources
# name files relative to. The target builds every package.
function(qz_test_msis target)
  cmake_parse_arguments(M "" "WXS;PREFIX" "VARIANTS;UPGRADE_CODES;DEFINES;DEPENDS" ${ARGN})
  find_program(QZ_WIXL wixl REQUIRED)
  get_filename_component(wxs ${M_WXS} ABSOLUTE)
  get_filename_component(dir ${wxs} DIRECTORY)
  get_filename_component(wxs_name ${wxs} NAME)
  set(msis)
  foreach(variant code IN ZIP_LISTS M_VARIANTS M_UPGRADE_CODES)
    set(out ${CMAKE_CURRENT_BINARY_DIR}/${M_PREFIX}${variant}.msi)
    string(REPLACE "@VARIANT@" "${variant}" defines "${M_DEFINES}")
    add_custom_command(OUTPUT ${out}
      COMMAND ${QZ_WIXL} -a x64 -D Variant=${variant} -D UpgradeCode=${code} ${defines} -o ${out} ${wxs_name}
      WORKING_DIRECTORY ${dir}
      DEPENDS ${wxs} ${M_DEPENDS}
      COMMENT "wixl: ${M_PREFIX}${variant}.msi" VERBATIM)
    list(APPEND msis ${out})
  endforeach()
  add_custom_target(${target} DEPENDS ${msis})
endfunction()

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

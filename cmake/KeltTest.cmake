# kelt_unit_test(<module> SOURCES <file>... LINKS <target>...)
#
# Makes the test program kelt_test_<module> of one folder, beside the loadable objects so that it finds them, and one
# CTest test per GoogleTest case. The program enters a private device before its main runs a test (tests/support), which
# has tests/data at KELT_TEST_DATA.
include(GoogleTest)
function(kelt_unit_test module)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(kelt_test_${module} ${ARG_SOURCES})
  set_target_properties(kelt_test_${module} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
  target_compile_definitions(kelt_test_${module} PRIVATE KELT_TEST_DATA="/checkout/data")
  # An optimising build warns without regard to a cast to void, or to a test that replaces the operators new and delete;
  # in strings and vectors of the library GCC then sees null pointers (KELT_TEST, see KeltOptions).
  set_target_properties(kelt_test_${module} PROPERTIES KELT_TEST ON)
  target_compile_options(kelt_test_${module} PRIVATE -Wno-unused-result
                                                     $<$<CXX_COMPILER_ID:GNU>:-Wno-mismatched-new-delete>)
  target_link_libraries(kelt_test_${module} PRIVATE kelt_options kelt_test_support ${ARG_LINKS} GTest::gtest)
  if(KELT_PRECOMPILE)
    target_precompile_headers(kelt_test_${module} REUSE_FROM kelt_test_support)
    target_compile_options(kelt_test_${module} PRIVATE -Winvalid-pch)
  endif()
  gtest_discover_tests(kelt_test_${module} TEST_PREFIX "${module}." DISCOVERY_TIMEOUT 300
                       PROPERTIES TIMEOUT 1800 LABELS unit)
endfunction()

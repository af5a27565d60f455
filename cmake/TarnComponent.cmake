# tarn_component(NAME DEPENDS part... SOURCES file...)
# One part of libtarn.so as an object library that sees only the parts it names.
function(tarn_component name)
  cmake_parse_arguments(ARG "" "" "DEPENDS;SOURCES" ${ARGN})
  add_library(tarn_${name} OBJECT ${ARG_SOURCES})
  list(TRANSFORM ARG_DEPENDS PREPEND tarn_)
  target_link_libraries(tarn_${name} PUBLIC tarn_options ${ARG_DEPENDS} Poco::Foundation Poco::XML
    Boost::headers PRIVATE tarn_warnings)
endfunction()

# tarn_tests(NAME SOURCES file... LINKS target...)
# One test program; every test in it becomes a test of its own, labelled with its name. Programs that a test starts stand in its
# environment: TARN_BIN_DIR is the folder of tarn and tarnd.
function(tarn_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name}_tests ${ARG_SOURCES} ${PROJECT_SOURCE_DIR}/tests/support/SanitizerOptions.cpp)
  target_link_libraries(${name}_tests PRIVATE tarn_options tarn_warnings ${ARG_LINKS}
    GTest::gmock GTest::gtest_main Threads::Threads)
  target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_precompile_headers(${name}_tests PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  include(GoogleTest)
  gtest_discover_tests(${name}_tests
    TEST_PREFIX ${name}.
    PROPERTIES LABELS ${name} TIMEOUT 300
               ENVIRONMENT "TARN_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
endfunction()

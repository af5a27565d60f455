# tarn_component(NAME DEPENDS part... SOURCES file...)
# One part of libtarn.so as an object library that sees only the parts it names.
function(tarn_component name)
  cmake_parse_arguments(ARG "" "" "DEPENDS;SOURCES" ${ARGN})
  add_library(tarn_${name} OBJECT ${ARG_SOURCES})
  list(TRANSFORM ARG_DEPENDS PREPEND tarn_)
  target_link_libraries(tarn_${name} PUBLIC tarn_options ${ARG_DEPENDS} Poco::Foundation Poco::XML
    Boost::headers PRIVATE tarn_warnings)
endfunction()

# tarn_library(NAME): what a library that is installed needs to be linked with.
function(tarn_library name)
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  if(NOT BUILD_SHARED_LIBS)
    return()
  endif()
  target_link_options(${name} PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
  set_target_properties(${name} PROPERTIES LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
  if(NOT TARN_BUILD_FUZZERS) # clang leaves the sanitizer's own symbols to the program
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
endfunction()

# tarn_tests(NAME SOURCES file... LINKS target...)
# One test program; every test in it becomes a test of its own, labelled with its name. Tests find
# tarn and tarnd in the folder that TARN_BIN_DIR names in their environment.
function(tarn_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name}_tests ${ARG_SOURCES})
  target_link_libraries(${name}_tests PRIVATE tarn_options tarn_warnings ${ARG_LINKS}
    sanitizer_options GTest::gmock GTest::gtest_main Threads::Threads)
  target_include_directories(${name}_tests PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  list(LENGTH ARG_SOURCES count)
  if(count GREATER 2) # below that, precompiling costs more than it saves
    target_precompile_headers(${name}_tests PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  endif()
  set(timeout 300)
  if(TARN_SANITIZE) # several times slower, and tests run side by side
    set(timeout 900)
    target_compile_definitions(${name}_tests PRIVATE TARN_SANITIZED)
  endif()
  include(GoogleTest)
  gtest_discover_tests(${name}_tests
    TEST_PREFIX ${name}. NO_PRETTY_VALUES
    PROPERTIES LABELS ${name} TIMEOUT ${timeout}
               ENVIRONMENT "TARN_BIN_DIR=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
endfunction()

# What every target of the project is compiled with.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR})
# An installed program finds the libraries beside it, wherever the prefix is.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
# So does a built one, whose folders are laid out alike. CMake would leave an empty entry in its list of folders, for
# which the loader takes the current one, and with it any library that lies there.
if(NOT CMAKE_SKIP_INSTALL_RPATH)
  set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
endif()

find_program(TARN_CCACHE ccache)
if(TARN_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${TARN_CCACHE})
endif()

add_library(tarn_options INTERFACE)
target_include_directories(tarn_options INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(tarn_options INTERFACE cxx_std_20)

add_library(tarn_warnings INTERFACE)
target_compile_options(tarn_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Woverloaded-virtual -Wconversion
  # g++ 12 sees overlaps in std::basic_string that are not there.
  $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local;-Wno-restrict>
  # Optimising, it sees impossible lengths and copies out of bounds, too, where texts are joined with "+": its bugs
  # 105329 and 105651.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<NOT:$<CONFIG:Debug>>>:-Wno-stringop-overflow;-Wno-stringop-overread;-Wno-array-bounds>
  # g++ does not count these among conversions.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>
  $<$<BOOL:${TARN_WERROR}>:-Werror>)

# A compiler cache hands out precompiled headers that are older than the files they were made from.
add_compile_options("$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>")

if(TARN_SANITIZE)
  add_compile_options(-fsanitize=${TARN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TARN_SANITIZE})
endif()

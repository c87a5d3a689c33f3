# Options for compiling and linking. They are interface targets, so that they do not change or
# replace the user's CXXFLAGS and LDFLAGS:
#
#   ZephylWarnings   the warnings of our own code
#   ZephylHardening  run-time checks of the compiler, the C library and the linker
#   ZephylSanitizers the sanitizers of ZEPHYL_SANITIZE and ZEPHYL_FUZZ
#   ZephylSections   removal of unused code, and calls without indirection
#   ZephylOptions    all of these
#   ZephylSmall      optimization for size
#   ZephylLean       linking with as few shared libraries as possible
option(ZEPHYL_WERROR "Treat warnings as errors" OFF)
set(ZEPHYL_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
option(ZEPHYL_FUZZ "Build the fuzz targets, with sanitizers (Clang only)" OFF)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")

set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

if(ZEPHYL_FUZZ AND NOT ZEPHYL_SANITIZE)
  set(ZEPHYL_SANITIZE address,undefined)
endif()
set(gnu "$<CXX_COMPILER_ID:GNU>")
set(clang "$<CXX_COMPILER_ID:Clang>")
set(optimized "$<NOT:$<CONFIG:Debug>>")

# Warnings. Designated initializers omit fields deliberately.
add_library(ZephylWarnings INTERFACE)
target_compile_options(ZephylWarnings INTERFACE
  -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  # These give false positives inside std::string, std::function and std::optional, which differ
  # between compiler versions.
  target_compile_options(ZephylWarnings INTERFACE
    -Wno-array-bounds -Wno-maybe-uninitialized -Wno-restrict -Wno-stringop-overflow -Wno-stringop-overread)
  if(CMAKE_UNITY_BUILD)
    # A source file that another includes counts as a header, which must not use unnamed namespaces.
    target_compile_options(ZephylWarnings INTERFACE -Wno-subobject-linkage)
  endif()
endif()
if(ZEPHYL_WERROR)
  target_compile_options(ZephylWarnings INTERFACE -Werror)
endif()

# Hardening. Assertions are enabled in every build because they cost little. Functions are bound at
# the start, because the lazy binder saves registers, which may contain parts of secrets, on the
# stack. Programs are compiled with -fPIC like libraries, so that both can use one precompiled header.
add_library(ZephylHardening INTERFACE)
target_compile_options(ZephylHardening INTERFACE -fPIC -UNDEBUG -fstack-protector-strong)
target_compile_definitions(ZephylHardening INTERFACE _GLIBCXX_ASSERTIONS)
target_link_options(ZephylHardening INTERFACE -Wl,-z,relro -Wl,-z,now)
if(NOT ZEPHYL_SANITIZE AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
  target_compile_options(ZephylHardening INTERFACE
    $<${optimized}:-U_FORTIFY_SOURCE> $<${optimized}:-D_FORTIFY_SOURCE=2>)
endif()

# Sanitizers.
add_library(ZephylSanitizers INTERFACE)
if(ZEPHYL_SANITIZE)
  target_compile_options(ZephylSanitizers INTERFACE
    -fsanitize=${ZEPHYL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(ZephylSanitizers INTERFACE -fsanitize=${ZEPHYL_SANITIZE})
  if(ZEPHYL_SANITIZE MATCHES undefined)
    # This check probes memory through a pipe, so it fails in a test that uses up all descriptors.
    target_compile_options(ZephylSanitizers INTERFACE -fno-sanitize=vptr)
  endif()
  if(ZEPHYL_SANITIZE MATCHES thread)
    # Asio uses atomic_thread_fence, which this sanitizer does not support.
    target_compile_options(ZephylSanitizers INTERFACE $<${gnu}:-Wno-tsan>)
  endif()
endif()
if(ZEPHYL_FUZZ)
  target_compile_options(ZephylSanitizers INTERFACE -fsanitize=fuzzer-no-link)
endif()

# All libraries are linked into programs, so no symbol has to be replaceable at run time, and unused
# functions are removed. Together this makes the tray's code a seventh smaller.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
add_library(ZephylSections INTERFACE)
target_compile_options(ZephylSections INTERFACE -fno-semantic-interposition -ffunction-sections -fdata-sections)
target_link_options(ZephylSections INTERFACE -Wl,--gc-sections)

# Debug information has line numbers for back traces. Variables would make builds too slow.
add_library(ZephylOptions INTERFACE)
target_compile_options(ZephylOptions INTERFACE -g1)
target_link_libraries(ZephylOptions INTERFACE ZephylWarnings ZephylHardening ZephylSections ZephylSanitizers)

# The programs wait most of the time. Compiled for size, the tray's code is a fifth smaller, uses less
# memory and compiles faster. Libraries that every request to the control API uses are compiled for
# speed instead (FOR_SPEED in Library.cmake).
add_library(ZephylSmall INTERFACE)
if(NOT CMAKE_CXX_FLAGS MATCHES "-O")
  target_compile_options(ZephylSmall INTERFACE $<$<CONFIG:RelWithDebInfo,Release>:-Os>)
endif()

# Fewer shared libraries mean less memory and a faster start. Not for programs that use other
# libraries written in C++, because those load the shared standard library as well.
add_library(ZephylLean INTERFACE)
if(NOT ZEPHYL_SANITIZE)
  target_link_options(ZephylLean INTERFACE -static-libstdc++ -static-libgcc)
endif()
set(Boost_USE_STATIC_LIBS ON)

# Uses a compiler cache unless the user has set a launcher. Precompiled headers need these settings.
find_program(ZEPHYL_CCACHE ccache)
if(ZEPHYL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER
    "${CMAKE_COMMAND}" -E env
    CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
    "${ZEPHYL_CCACHE}")
  target_compile_options(ZephylOptions INTERFACE $<${gnu}:-fpch-preprocess> "$<${clang}:SHELL:-Xclang -fno-pch-timestamp>")
endif()

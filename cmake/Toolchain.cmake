# How every target is compiled: language level, warnings, sanitizers, linking, compiler cache.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")

# Optimized, with line numbers for back traces, and with assertions: they cost next to nothing.
set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O2 -g1")
# For the sanitizers, which need no more than line numbers either.
set(CMAKE_CXX_FLAGS_DEBUG "-g1")

# Several sources of a target are compiled as one: what each includes of the standard library and
# of Boost costs more than itself. The fuzz targets' tree goes file by file instead, so that a file
# that leans on an include of its neighbour's is noticed.
if(NOT ZEPHYL_FUZZ)
  option(CMAKE_UNITY_BUILD "Compile several sources as one" ON)
  set(CMAKE_UNITY_BUILD_BATCH_SIZE 8 CACHE STRING "How many sources are compiled as one")
endif()

find_program(ZEPHYL_CCACHE ccache)
if(ZEPHYL_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${ZEPHYL_CCACHE}")
endif()

# Designated initializers leave fields to their defaults on purpose.
add_compile_options(-Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                    -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_UNITY_BUILD)
  # It takes a source file that is included for a header, which may hold nothing unnamed.
  add_compile_options(-Wno-subobject-linkage)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # False alarms of this compiler's optimizer about the inside of std::string and std::optional.
  # (The last is for clang-tidy, which reads these options and does not know the others.)
  add_compile_options(-Wno-restrict -Wno-maybe-uninitialized -Wno-unknown-warning-option)
endif()
if(ZEPHYL_WERROR)
  add_compile_options(-Werror)
endif()

# All functions are found at the start: who looks them up later leaves the processor's registers,
# and with them pieces of secrets, on the stack.
add_link_options(-Wl,-z,now)

if(ZEPHYL_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  if(NOT ZEPHYL_SANITIZE)
    set(ZEPHYL_SANITIZE address,undefined)
  endif()
endif()
if(ZEPHYL_SANITIZE)
  add_compile_options(-fsanitize=${ZEPHYL_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${ZEPHYL_SANITIZE})
  if(ZEPHYL_SANITIZE MATCHES undefined)
    # It probes memory through a pipe, and takes an object for none in a test without descriptors.
    add_compile_options(-fno-sanitize=vptr)
  endif()
  if(ZEPHYL_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    add_compile_options(-Wno-tsan) # Asio uses atomic_thread_fence, which TSan cannot see
  endif()
else()
  # Fewer shared libraries to map: less memory and a faster start of a process that runs all day.
  add_link_options(-static-libstdc++ -static-libgcc)
  set(Boost_USE_STATIC_LIBS ON)
endif()

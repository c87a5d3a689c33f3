# Selects the newest installed Clang, for presets that need its runtime.
if(NOT DEFINED CMAKE_CXX_COMPILER)
  find_program(ZEPHYL_CLANG NAMES clang++-19 clang++-18 clang++-17 clang++-16 clang++ REQUIRED)
  set(CMAKE_CXX_COMPILER "${ZEPHYL_CLANG}")
endif()

# Warnings are errors in everything that is built here, unless CMAKE_COMPILE_WARNING_AS_ERROR is off.
add_library(zsl_warnings INTERFACE)
if(NOT DEFINED CMAKE_COMPILE_WARNING_AS_ERROR OR CMAKE_COMPILE_WARNING_AS_ERROR)
  target_compile_options(zsl_warnings INTERFACE -Werror)
endif()
target_compile_options(zsl_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  # At -O3 gcc 12 takes "a" + std::string for a copy onto itself (its fault 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)

# Warnings are errors in everything that is built here.
add_library(zsl_warnings INTERFACE)
target_compile_options(zsl_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Werror
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)

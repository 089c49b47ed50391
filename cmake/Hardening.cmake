# For what goes to devices: whatever an attacker finds there is harder to make use of. The device's
# own build sets most of it by itself; here it lets the tests see what it costs and that the code
# bears it. Segments lie on pages of 16 KiB, which current devices may have.
add_library(zsl_hardening INTERFACE)
target_compile_options(zsl_hardening INTERFACE -fstack-protector-strong)
# Returns and jumps are checked where the processor can.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
  target_compile_options(zsl_hardening INTERFACE -mbranch-protection=standard)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  target_compile_options(zsl_hardening INTERFACE -fcf-protection)
endif()
# The C library's checks of sizes need the optimiser, and sanitizers have their own.
if(NOT ZSL_SANITIZE)
  target_compile_options(zsl_hardening INTERFACE
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
target_link_options(zsl_hardening INTERFACE
  -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,-z,max-page-size=16384)

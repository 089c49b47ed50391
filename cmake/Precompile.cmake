# Precompiled headers for the builds whose time counts most. The release preset goes without, and so
# holds that every source includes what it needs.

# What nearly every source of the libraries includes.
set(zsl_stack_headers
  <algorithm> <atomic> <cstdint> <functional> <map> <memory> <mutex> <optional> <string>
  <unordered_map> <utility> <vector>
  <cutils/properties.h> <metadata/IMetadata.h> <pipeline/IFrameBuilder.h>
  <pipeline/IHistoryBufferProvider.h> <utils/RefBase.h> <utils/Timers.h>)

# zsl_precompile(TARGET HEADER...): precompiles the headers, in this form: <vector>.
function(zsl_precompile target)
  if(ZSL_PRECOMPILE)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

# zsl_precompile_as(TARGET OTHER): shares those of another target with the same options.
function(zsl_precompile_as target other)
  if(ZSL_PRECOMPILE)
    target_precompile_headers(${target} REUSE_FROM ${other})
  endif()
endfunction()

# zsl_unity(TARGET): compiles the target's sources a few at a time. All of a folder share a namespace,
# so that names in their unnamed namespaces must differ, too.
function(zsl_unity target)
  if(ZSL_UNITY)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 6)
    # gcc takes what is included for a header, in which an unnamed namespace would be a mistake.
    target_compile_options(${target} PRIVATE
      $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  endif()
endfunction()

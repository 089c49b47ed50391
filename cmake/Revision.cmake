# Which revision the sources are of, asked anew by every build, for it changes without a configuration.

# zsl_revision(TARGET): adds a source that defines zebcam::tool::REVISION.
function(zsl_revision target)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/Revision.cpp)
  add_custom_target(${target}_revision
    COMMAND ${CMAKE_COMMAND} -DSOURCES=${PROJECT_SOURCE_DIR} -DOUTPUT=${source}
      -P ${PROJECT_SOURCE_DIR}/cmake/WriteRevision.cmake
    BYPRODUCTS ${source}
    COMMENT "Looking up the revision"
    VERBATIM)
  target_sources(${target} PRIVATE ${source})
  set_source_files_properties(${source} PROPERTIES SKIP_PRECOMPILE_HEADERS ON
    SKIP_UNITY_BUILD_INCLUSION ON)
  add_dependencies(${target} ${target}_revision)
endfunction()

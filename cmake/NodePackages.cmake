# What the report's page and its test need of node: found at once or said at once, and installed in
# one way.
# Sets NODE_EXECUTABLE and NPM_EXECUTABLE; ends the configuration if one is missing.
macro(zsl_find_node)
  find_program(NODE_EXECUTABLE node)
  find_program(NPM_EXECUTABLE npm)
  if(NOT NODE_EXECUTABLE OR NOT NPM_EXECUTABLE)
    message(FATAL_ERROR "The report's page needs node and npm: install them (scripts/setup demo), or "
      "build without the page: -DZSL_BUILD_PAGE=OFF")
  endif()
endmacro()

# zsl_node_packages(WHAT): installs what package-lock.json of the current source folder names into
# the current binary folder, where `packages.stamp` then says so.
function(zsl_node_packages what)
  add_custom_command(
    OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/packages.stamp
    COMMAND ${CMAKE_COMMAND}
      -DNPM=${NPM_EXECUTABLE} -DFROM=${CMAKE_CURRENT_SOURCE_DIR} -DTO=${CMAKE_CURRENT_BINARY_DIR}
      -P ${PROJECT_SOURCE_DIR}/cmake/InstallNodePackages.cmake
    DEPENDS package.json package-lock.json
    COMMENT "Installing the packages of ${what}"
    VERBATIM)
endfunction()

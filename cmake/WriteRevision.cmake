# Run by the build: writes OUTPUT with the revision of SOURCES, and leaves it alone if it says so
# already.
set(revision "")

# Sources that were unpacked inside of somebody else's repository are not of its revision.
find_program(GIT git)
if(GIT AND EXISTS ${SOURCES}/.git)
  execute_process(COMMAND ${GIT} describe --always --tags --dirty --abbrev=12
    WORKING_DIRECTORY ${SOURCES}
    OUTPUT_VARIABLE revision OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()

# An archive that git made has the revision written into this line (.gitattributes).
if(revision STREQUAL "")
  set(archived "$Format:%h$")
  if(NOT archived MATCHES "Format")
    set(revision ${archived})
  else()
    set(revision unknown)
  endif()
endif()

set(text "// Made by WriteRevision.cmake.\n#include \"Version.h\"\n\nnamespace zebcam::tool {\n\n\
char const REVISION[] = \"${revision}\";\n\n}  // namespace zebcam::tool\n")
set(before "")
if(EXISTS ${OUTPUT})
  file(READ ${OUTPUT} before)
endif()
if(NOT text STREQUAL before)
  file(WRITE ${OUTPUT} "${text}")
endif()

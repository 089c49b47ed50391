# Android's open platform libraries as Debian packages them: targets android_headers and
# android_platform. They live beside, not in, the default library path, so that programs need
# AndroidPlatform_LIBRARY_DIR in their run path.
find_path(AndroidPlatform_INCLUDE_DIR utils/RefBase.h PATHS /usr/include/android NO_DEFAULT_PATH)
mark_as_advanced(AndroidPlatform_INCLUDE_DIR)

set(AndroidPlatform_LIBRARIES "")
foreach(name utils cutils log)
  find_library(AndroidPlatform_${name}_LIBRARY NAMES ${name}
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android NO_DEFAULT_PATH)
  mark_as_advanced(AndroidPlatform_${name}_LIBRARY)
  list(APPEND AndroidPlatform_LIBRARIES ${AndroidPlatform_${name}_LIBRARY})
endforeach()
set(AndroidPlatform_LIBRARY_DIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(AndroidPlatform
  REQUIRED_VARS AndroidPlatform_INCLUDE_DIR AndroidPlatform_utils_LIBRARY
    AndroidPlatform_cutils_LIBRARY AndroidPlatform_log_LIBRARY
  REASON_FAILURE_MESSAGE
    "install android-libutils-dev, android-libcutils-dev and android-liblog-dev (Debian 12)")

if(AndroidPlatform_FOUND AND NOT TARGET android_platform)
  add_library(android_headers INTERFACE IMPORTED)
  target_include_directories(android_headers INTERFACE ${AndroidPlatform_INCLUDE_DIR})
  add_library(android_platform INTERFACE IMPORTED)
  target_link_libraries(android_platform INTERFACE android_headers ${AndroidPlatform_LIBRARIES})
endif()

# The installed tree: libraries, headers under include/zebcam, a CMake package, pkg-config files
# and the selector kit. Everything in it finds the rest relative to itself.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zebcam_zsl)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/zebcam)

# What the author of a selection policy builds against.
add_library(zebcam_selector INTERFACE)
target_compile_features(zebcam_selector INTERFACE cxx_std_20)
target_include_directories(zebcam_selector INTERFACE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/pipeline>
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/stack/include>
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/platform/host/include>)
target_link_libraries(zebcam_selector INTERFACE $<BUILD_INTERFACE:zebcam_base> android_headers)

set_target_properties(zebcam_pipelinemodel_zsl PROPERTIES EXPORT_NAME zsl)
set_target_properties(zebcam_zsl_recorder PROPERTIES EXPORT_NAME zsl_recorder)
set_target_properties(zebcam_stack_host PROPERTIES EXPORT_NAME stack_host)
set_target_properties(zebcam_platform_host PROPERTIES EXPORT_NAME platform_host)
set_target_properties(zebcam_selector PROPERTIES EXPORT_NAME selector)
foreach(name zsl zsl_recorder stack_host platform_host selector)
  set(target zebcam_${name})
  if(name STREQUAL "zsl")
    set(target zebcam_pipelinemodel_zsl)
  endif()
  target_compile_features(${target} INTERFACE cxx_std_20)
  if(NOT name STREQUAL "selector")
    set_target_properties(${target} PROPERTIES
      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  endif()
  add_library(zebcam::${name} ALIAS ${target})
endforeach()

install(TARGETS zebcam_pipelinemodel_zsl zebcam_zsl_recorder zebcam_stack_host
    zebcam_platform_host zebcam_selector
  EXPORT zebcam_zslTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${header_dir})
install(DIRECTORY
    base/include/
    pipeline/model/include/
    pipeline/recorder/include/
    stack/include/
    stack/host/include/
    platform/host/include/
  DESTINATION ${header_dir} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY pipeline/policy DESTINATION ${header_dir} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY sdk/selector DESTINATION ${CMAKE_INSTALL_DATADIR}/zebcam)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DATADIR}/zebcam)
install(FILES README.md LICENSE CHANGELOG.md CONTRIBUTING.md
  DESTINATION ${CMAKE_INSTALL_DATADIR}/zebcam)

install(EXPORT zebcam_zslTargets NAMESPACE zebcam:: DESTINATION ${package_dir})
configure_package_config_file(cmake/zebcam_zslConfig.cmake.in
  ${CMAKE_BINARY_DIR}/package/zebcam_zslConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package/zebcam_zslConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_BINARY_DIR}/package/zebcam_zslConfig.cmake
    ${CMAKE_BINARY_DIR}/package/zebcam_zslConfigVersion.cmake
    cmake/FindAndroidPlatform.cmake
  DESTINATION ${package_dir})

set(STACK_LINK -lzebcam_stack_host)
if(NOT ZSL_STACK STREQUAL "zebcam_stack_host")
  set(STACK_LINK ${ZSL_STACK})
endif()
file(RELATIVE_PATH PREFIX_FROM_PC
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(name zebcam-zsl zebcam-zsl-recorder zebcam-selector)
  configure_file(cmake/${name}.pc.in ${CMAKE_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${CMAKE_BINARY_DIR}/package/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# What cmake --install puts where, in components (tools/ adds CorvaneCommon_Tool):
#   CorvaneCommon_Runtime      the shared library
#   CorvaneCommon_Development  headers, the CMake package, the pkg-config file
#   CorvaneCommon_Simulator    the simulated runtime: library, headers, pkg-config file
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(corvane_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/CorvaneCommon)
set(corvane_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# Not where the dynamic loader or a compiler looks by itself: its SONAME is the vendor's.
set(corvane_simulator_dir ${CMAKE_INSTALL_LIBDIR}/corvane/simulator)
set(corvane_simulator_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/corvane-simulator)

install(TARGETS CorvaneCommon EXPORT CorvaneCommonTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT CorvaneCommon_Runtime NAMELINK_COMPONENT CorvaneCommon_Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/corvane DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT CorvaneCommon_Development FILES_MATCHING PATTERN "*.h")

install(EXPORT CorvaneCommonTargets NAMESPACE Corvane:: DESTINATION ${corvane_cmake_dir}
  COMPONENT CorvaneCommon_Development)
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/CorvaneCommonConfig.cmake.in
  ${PROJECT_BINARY_DIR}/CorvaneCommonConfig.cmake
  INSTALL_DESTINATION ${corvane_cmake_dir}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CorvaneCommonConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/CorvaneCommonConfig.cmake
  ${PROJECT_BINARY_DIR}/CorvaneCommonConfigVersion.cmake
  DESTINATION ${corvane_cmake_dir} COMPONENT CorvaneCommon_Development)

# corvane_pc_dir(VARIABLE DIR): DIR as a pkg-config file writes it, below its prefix or absolute.
function(corvane_pc_dir variable dir)
  if(IS_ABSOLUTE "${dir}")
    set(${variable} "${dir}" PARENT_SCOPE)
  else()
    set(${variable} "\${prefix}/${dir}" PARENT_SCOPE)
  endif()
endfunction()

# A file below the prefix finds it from its own place, so that the tree can be moved. An absolute
# library directory need not lie below the prefix: nothing can be found from there.
set(corvane_pc_prefix ${CMAKE_INSTALL_PREFIX})
if(CORVANE_RELOCATABLE_PKGCONFIG AND NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  file(RELATIVE_PATH corvane_pc_prefix "/${corvane_pkgconfig_dir}" "/")
  string(REGEX REPLACE "/$" "" corvane_pc_prefix "\${pcfiledir}/${corvane_pc_prefix}")
endif()
corvane_pc_dir(corvane_pc_libdir ${CMAKE_INSTALL_LIBDIR})
corvane_pc_dir(corvane_pc_includedir ${CMAKE_INSTALL_INCLUDEDIR})

# corvane_install_pkgconfig(NAME COMPONENT [EXCLUDE_FROM_ALL])
function(corvane_install_pkgconfig name component)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${corvane_pkgconfig_dir}
    COMPONENT ${component} ${ARGN})
endfunction()
corvane_install_pkgconfig(CorvaneCommon CorvaneCommon_Development)

if(corvane_runtime STREQUAL simulator)
  # Switched off it still is a component for those who name it, only not part of a plain install.
  set(corvane_unless_named)
  if(NOT CORVANE_INSTALL_SIMULATOR)
    set(corvane_unless_named EXCLUDE_FROM_ALL)
  endif()
  install(TARGETS rknn_api EXPORT CorvaneSimulatorTargets
    LIBRARY DESTINATION ${corvane_simulator_dir}
      COMPONENT CorvaneCommon_Simulator ${corvane_unless_named}
    INCLUDES DESTINATION ${corvane_simulator_include_dir})
  get_target_property(corvane_simulator_headers rknn_api CORVANE_PUBLIC_HEADERS)
  install(FILES ${corvane_simulator_headers} DESTINATION ${corvane_simulator_include_dir}
    COMPONENT CorvaneCommon_Simulator ${corvane_unless_named})
  install(EXPORT CorvaneSimulatorTargets NAMESPACE Corvane:: DESTINATION ${corvane_cmake_dir}
    COMPONENT CorvaneCommon_Simulator ${corvane_unless_named})
  corvane_install_pkgconfig(CorvaneSimulator CorvaneCommon_Simulator ${corvane_unless_named})
endif()

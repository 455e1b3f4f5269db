# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Install rules: the plug-in, the static library, the public headers, a CMake
# package (magcal::magcal, magcal::magcal_static, magcal::headers) and a
# pkg-config file, under the GNUInstallDirs paths; the tool, its report script
# and the trace library (lib/magcal/libmagcal_trace.so) when the tools are built.
include(CMakePackageConfigHelpers)

set(MAGCAL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/magcal)

install(TARGETS magcal magcal_static magcal_headers
  EXPORT magcalTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/magcal ${PROJECT_BINARY_DIR}/include/magcal
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")

install(EXPORT magcalTargets
  NAMESPACE magcal::
  DESTINATION ${MAGCAL_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/magcalConfig.cmake.in
  ${PROJECT_BINARY_DIR}/magcalConfig.cmake
  INSTALL_DESTINATION ${MAGCAL_CMAKE_DIR})
# The host interface is fixed within a major version; a newer minor release
# satisfies a request for an older one.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/magcalConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/magcalConfig.cmake ${PROJECT_BINARY_DIR}/magcalConfigVersion.cmake
  DESTINATION ${MAGCAL_CMAKE_DIR} COMPONENT development)

# The pkg-config file names the prefix the tree is installed to, which
# `cmake --install --prefix` may change after configuration: its prefix is
# filled in at install time. Relative install dirs stay relative to ${prefix}.
foreach(dir IN ITEMS LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(MAGCAL_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(MAGCAL_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
set(MAGCAL_PC_PREFIX "@MAGCAL_PC_PREFIX@")  # kept for the install-time pass
configure_file(${PROJECT_SOURCE_DIR}/cmake/magcal.pc.in ${PROJECT_BINARY_DIR}/magcal.pc.in @ONLY)
install(CODE "
  set(MAGCAL_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
  configure_file(\"${PROJECT_BINARY_DIR}/magcal.pc.in\"
                 \"${PROJECT_BINARY_DIR}/pkgconfig/magcal.pc\" @ONLY)
  file(INSTALL \"${PROJECT_BINARY_DIR}/pkgconfig/magcal.pc\"
       DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")
" COMPONENT development)

if(TARGET magcal_tool)
  install(TARGETS magcal_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  # The tool looks for its report script in <bin>/../share/magcal.
  install(PROGRAMS ${PROJECT_SOURCE_DIR}/tools/magcal/report.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/magcal COMPONENT tools)
  # The plug-in with its decision snapshot, for `magcal replay --trace`: in a
  # directory of its own, not where hosts look for plug-ins.
  install(TARGETS magcal_trace LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/magcal COMPONENT tools)
endif()

# Installation: the shared library, the public headers (the umbrella
# VantrelAuthEngine.h beside the folder VantrelAuthEngine64/ that holds the
# rest), a pkg-config file and a CMake package.
include(CMakePackageConfigHelpers)

file(GLOB VANTREL_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/VantrelAuthEngine64/*.h)
set_property(GLOBAL PROPERTY VANTREL_PUBLIC_HEADERS
  "${PROJECT_SOURCE_DIR}/include/VantrelAuthEngine.h;${VANTREL_PUBLIC_HEADERS}")

# Components follow the Debian split: `runtime` is the versioned shared object
# alone, `dev` what building a host needs (headers, the unversioned link, the
# CMake and pkg-config files), `signin` the example host (examples/signin).
install(TARGETS VantrelAuthEngine64 EXPORT VantrelAuthEngine64Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/include/VantrelAuthEngine.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(FILES ${VANTREL_PUBLIC_HEADERS}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VantrelAuthEngine64 COMPONENT dev)

install(EXPORT VantrelAuthEngine64Targets NAMESPACE Vantrel::
  FILE VantrelAuthEngine64Targets.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VantrelAuthEngine64 COMPONENT dev)
# The exported target is named AuthEngine64 under the Vantrel:: namespace.
set_target_properties(VantrelAuthEngine64 PROPERTIES EXPORT_NAME AuthEngine64)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VantrelAuthEngine64Config.cmake.in
  ${PROJECT_BINARY_DIR}/VantrelAuthEngine64Config.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VantrelAuthEngine64)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VantrelAuthEngine64ConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VantrelAuthEngine64Config.cmake
  ${PROJECT_BINARY_DIR}/VantrelAuthEngine64ConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VantrelAuthEngine64 COMPONENT dev)

# The .pc file finds the prefix from its own place, so that a tree installed
# with `cmake --install --prefix` elsewhere, or moved, still works. Only the
# shared library ships: libcurl and PCRE2 stay behind it and need no mention.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
  set(VANTREL_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
  set(VANTREL_PC_LIBDIR "${CMAKE_INSTALL_FULL_LIBDIR}")
  set(VANTREL_PC_INCLUDEDIR "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
  file(RELATIVE_PATH pc_up "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
  string(REGEX REPLACE "/$" "" pc_up "${pc_up}")
  set(VANTREL_PC_PREFIX "\${pcfiledir}/${pc_up}")
  set(VANTREL_PC_LIBDIR "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
  set(VANTREL_PC_INCLUDEDIR "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/VantrelAuthEngine64.pc.in
  ${PROJECT_BINARY_DIR}/VantrelAuthEngine64.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/VantrelAuthEngine64.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

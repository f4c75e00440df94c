# Debian packages, built by `script/package` (cpack -G DEB) from the install
# components of cmake/Install.cmake and examples/signin:
#
#   libvantrelauthengine64-1    the shared library, named after its SONAME
#   libvantrelauthengine64-dev  headers, the .so link, CMake and pkg-config files
#   vantrel-signin              the example host
#
# Run-time dependencies are computed from the binaries by dpkg-shlibdeps.
set(VANTREL_DEB_RUNTIME "libvantrelauthengine64-${PROJECT_VERSION_MAJOR}")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vantrelauthengine64)
set(CPACK_PACKAGE_VENDOR "Vantrel")
set(CPACK_PACKAGE_CONTACT "VantrelAuthEngine64 maintainers <authengine@vantrel.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "SharePoint and Microsoft Entra ID sign-in library")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
if(TARGET vantrel-signin)
  list(APPEND CPACK_COMPONENTS_ALL signin)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# vantrel-signin links the library being packaged, which no installed package
# provides yet: dpkg-shlibdeps looks for it in the build tree instead, and the
# dependency on it is written out below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${VANTREL_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# A shlibs file, so that the packages of hosts get their dependency on this one
# computed the same way.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "Signs an application in to SharePoint: forms, ADFS, the Office 365 chain and Microsoft Entra ID.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvantrelauthengine64-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${VANTREL_DEB_RUNTIME} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "Headers, CMake package and pkg-config file for building hosts of VantrelAuthEngine64.")

set(CPACK_DEBIAN_SIGNIN_PACKAGE_NAME vantrel-signin)
set(CPACK_DEBIAN_SIGNIN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_SIGNIN_PACKAGE_DEPENDS "${VANTREL_DEB_RUNTIME} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_SIGNIN_DESCRIPTION
  "Command-line sign-in to SharePoint and Microsoft Entra ID through VantrelAuthEngine64.")

include(CPack)

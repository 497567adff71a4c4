# `make package` (the `package` target): Debian packages, one per install component.
#   libztcryptographic1     the plug-in, for hosts at run time
#   zthost                  the command, the software key's driver and the demo page
#   libztcryptographic-dev  headers and CMake package config for host projects
# Test, benchmark and fuzz programs are in no component and so in no package.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ztcryptographic)
set(CPACK_PACKAGE_VENDOR "ZtCryptographic developers")
set(CPACK_PACKAGE_CONTACT "ZtCryptographic developers <zt-dev@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Qt plug-in for digital envelopes on a smart key")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The Qt 6 build installs beside the Qt 5 one, never over it: its packages carry a -qt6 suffix and
# put the whole tree under /usr/lib/zt-qt6 (bin/zthost, lib/libZtCryptographic.so.1, include/,
# share/). The plug-in keeps its file name, which hosts load by, in a folder of its own; every
# path inside the tree stays relative to it, so zthost finds its plug-in, driver and page as in
# the Qt 5 packages, and a host project points CMAKE_PREFIX_PATH at /usr/lib/zt-qt6.
set(zt_package_suffix "")
if(ZT_QT_MAJOR STREQUAL "6")
  set(zt_package_suffix "-qt6")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr/lib/zt-qt6)
endif()
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
# The tree is built with debug information; packages carry the stripped files.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime cli development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Run-time dependencies (Qt, OpenSSL, the C++ library) from the binaries themselves.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Dependencies between the components become dependencies between the packages, pinned to this
# version.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_COMPONENT_RUNTIME_DISPLAY_NAME "plug-in")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "Qt plug-in for digital envelopes on a smart key
 libZtCryptographic.so.1, loaded by a host application, gives web pages a scriptable object
 that opens the user's key, verifies the PIN, reads the SM2 encryption certificate and opens
 digital envelopes on the device.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libztcryptographic1${zt_package_suffix})

set(CPACK_COMPONENT_CLI_DISPLAY_NAME "zthost")
set(CPACK_COMPONENT_CLI_DESCRIPTION
  "Reference host of the ZtCryptographic plug-in, on the command line
 zthost loads the plug-in with a complete host core: it makes software keys, seals and opens
 envelopes, runs the whole road in one demo and serves the demo page to a browser. The software
 key driver (libztsoftskf.so) and the page come with it.")
set(CPACK_COMPONENT_CLI_DEPENDS runtime)
set(CPACK_DEBIAN_CLI_PACKAGE_NAME zthost${zt_package_suffix})
set(CPACK_DEBIAN_CLI_PACKAGE_SECTION utils)

set(CPACK_COMPONENT_DEVELOPMENT_DISPLAY_NAME "development files")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Development files of the ZtCryptographic plug-in
 The public headers and a CMake package configuration: find_package(ZtCryptographic) gives the
 target Zt::Cryptographic.")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libztcryptographic${zt_package_suffix}-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# Its headers include Qt Core's.
if(ZT_QT_MAJOR STREQUAL "6")
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "qt6-base-dev")
else()
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "qtbase5-dev")
endif()

include(CPack)

# The Debian package hdwlib: everything the build installs (library, headers,
# CMake and pkg-config files, hdwtool, hdwsim and whatever other install rules
# add), under /usr. Built from a configured and built tree:
#
#     cd build && cpack -G DEB
#
# Its dependencies come from dpkg-shlibdeps; the library gets a shlibs file
# and the ldconfig trigger.
set(CPACK_PACKAGE_NAME hdwlib)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "HdwLib developers")
set(CPACK_PACKAGE_CONTACT "HdwLib developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "hardware-access library for ARINC 429, CAN, MIL-STD-1553 and UART interface units")
set(CPACK_PACKAGE_DESCRIPTION
    "HdwLib drives avionics and industrial interface units over USB serial links or UDP. \
The package holds the shared library, its headers, CMake and pkg-config files, the \
command-line tool hdwtool and the unit emulator hdwsim.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_PACKAGE_NAME hdwlib)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "HdwLib developers")
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

include(CPack)

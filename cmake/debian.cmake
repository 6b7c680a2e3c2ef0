# Debian packages of the three components, by CPack: liborba1, liborba-dev and orba. script/package configures a build
# for them and runs it.
set(ORBA_MAINTAINER "The orba developers <orba@orba.invalid>" CACHE STRING "Maintainer of the Debian packages")
set(ORBA_DEBIAN_REVISION 1 CACHE STRING "Which packaging of this version it is")
set(ORBA_DATE "" CACHE STRING "When this version was made, as the changelog has dates: Mon, 01 Jan 2001 00:00:00 +0000")

set(runtime_package "liborba${PROJECT_VERSION_MAJOR}")
set(debian_version "${PROJECT_VERSION}-${ORBA_DEBIAN_REVISION}")
set(debian_files "${CMAKE_BINARY_DIR}/debian")
configure_file("${CMAKE_SOURCE_DIR}/cmake/debian/changelog.in" "${debian_files}/changelog" @ONLY)
configure_file("${CMAKE_SOURCE_DIR}/cmake/debian/shlibs.in" "${debian_files}/shlibs" @ONLY)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_CONTACT "${ORBA_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "file systems inside one container file")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
    WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL library development tool)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_RELEASE "${ORBA_DEBIAN_REVISION}")
set(CPACK_DEBIAN_PACKAGE_SOURCE orba)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The documents of each package, and what Debian asks of files, are seen to on the trees that were installed for them.
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_SOURCE_DIR}/cmake/debian/tree.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${CMAKE_SOURCE_DIR}/cmake/debian/control.cmake")
set(CPACK_ORBA_DEBIAN_FILES "${debian_files}")
set(CPACK_ORBA_SOURCE "${CMAKE_SOURCE_DIR}")

set(about "Containers hold directories, files, attributes and times for Windows CE
devices on ARM, all in one ordinary file each.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME "${runtime_package}")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${debian_files}/shlibs" "${CMAKE_SOURCE_DIR}/cmake/debian/triggers")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "${about}

This is the library that programs are linked to, and the memory file for
containers that last as long as a process.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liborba-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} (= ${debian_version})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "${about}

This is what programs need to be built with the library: its header, the
library to link in, a file for pkg-config and a package for CMake.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME orba)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_BINARY_DIR}/lib")
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${runtime_package} (= ${debian_version})")
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS fuse3)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "${about}

This is the command line, which makes, fills, lists, checks and repairs
containers, and shows them as folders.")

include(CPack)

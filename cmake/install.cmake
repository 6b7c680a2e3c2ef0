# What `cmake --install` puts where: the library in both forms, its header, the memory file beside it, the command-line
# tool with its manual page, its completion and the helper of mount(8), and what lets others find the library
# (pkg-config, CMake).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(NOT WIN32)
  set_target_properties(orba_tool PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS orba_tool)
  install(PROGRAMS "${CMAKE_SOURCE_DIR}/mount/mount.fuse.orba" DESTINATION "${CMAKE_INSTALL_SBINDIR}")
  install(FILES "${CMAKE_BINARY_DIR}/share/orba.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
  install(FILES "${CMAKE_BINARY_DIR}/share/orba.bash"
          DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME orba)
endif()

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/orba")
set(package_files "${CMAKE_BINARY_DIR}/package")

install(TARGETS orba orba_static EXPORT orba)
install(TARGETS memfile)  # loaded at run time from the library's own folder
install(FILES "${CMAKE_SOURCE_DIR}/include/orba.h" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")

install(EXPORT orba NAMESPACE orba:: FILE orba-targets.cmake DESTINATION "${package_dir}")
configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/orba-config.cmake.in" "${package_files}/orba-config.cmake"
                              INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${package_files}/orba-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${package_files}/orba-config.cmake" "${package_files}/orba-config-version.cmake"
        DESTINATION "${package_dir}")

# The prefix follows from where the file lies, so that an installed tree can be moved.
file(RELATIVE_PATH up_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" up_to_prefix "${up_to_prefix}")
configure_file("${CMAKE_SOURCE_DIR}/cmake/orba.pc.in" "${package_files}/orba.pc" @ONLY)
install(FILES "${package_files}/orba.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

# What `cmake --install` puts where, in three components: `library`, with the memory file beside it; `development`, its
# header, the library to link in, and what lets others find them (pkg-config, CMake); `tool`, the command line with its
# manual pages, its completions and the helper of mount(8).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ORBA_ZSH_COMPLETIONS "${CMAKE_INSTALL_DATADIR}/zsh/site-functions" CACHE STRING "Where zsh looks for completions")

if(NOT WIN32)
  set_target_properties(orba_tool PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS orba_tool COMPONENT tool)
  install(PROGRAMS "${CMAKE_SOURCE_DIR}/mount/mount.fuse.orba" DESTINATION "${CMAKE_INSTALL_SBINDIR}" COMPONENT tool)
  install(FILES "${CMAKE_BINARY_DIR}/share/orba.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tool)
  install(FILES "${CMAKE_SOURCE_DIR}/mount/mount.fuse.orba.8" DESTINATION "${CMAKE_INSTALL_MANDIR}/man8"
          COMPONENT tool)
  install(FILES "${CMAKE_BINARY_DIR}/share/orba.bash"
          DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME orba COMPONENT tool)
  install(FILES "${CMAKE_BINARY_DIR}/share/orba.zsh" DESTINATION "${ORBA_ZSH_COMPLETIONS}" RENAME _orba COMPONENT tool)
  install(FILES "${CMAKE_BINARY_DIR}/share/orba.fish" DESTINATION "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d"
          COMPONENT tool)
endif()

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/orba")
set(package_files "${CMAKE_BINARY_DIR}/package")

install(TARGETS orba EXPORT orba RUNTIME COMPONENT library ARCHIVE COMPONENT development
        LIBRARY COMPONENT library NAMELINK_COMPONENT development)
install(TARGETS orba_static EXPORT orba COMPONENT development)
# Loaded at run time from the library's own folder.
install(TARGETS memfile RUNTIME COMPONENT library LIBRARY COMPONENT library ARCHIVE COMPONENT development)
install(FILES "${CMAKE_SOURCE_DIR}/include/orba.h" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)

install(EXPORT orba NAMESPACE orba:: FILE orba-targets.cmake DESTINATION "${package_dir}" COMPONENT development)
configure_package_config_file("${CMAKE_SOURCE_DIR}/cmake/orba-config.cmake.in" "${package_files}/orba-config.cmake"
                              INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file("${package_files}/orba-config-version.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${package_files}/orba-config.cmake" "${package_files}/orba-config-version.cmake"
        DESTINATION "${package_dir}" COMPONENT development)

# The prefix follows from where the file lies, so that an installed tree can be moved.
file(RELATIVE_PATH up_to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" up_to_prefix "${up_to_prefix}")
configure_file("${CMAKE_SOURCE_DIR}/cmake/orba.pc.in" "${package_files}/orba.pc" @ONLY)
install(FILES "${package_files}/orba.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

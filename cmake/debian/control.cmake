# Run by CPack on the packages it made, for what it has no settings for: each one's own half of the summary, how they go
# together with those of other architectures, and no scripts that call ldconfig, since the library's trigger does that.
set(half_of_${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} "library")
set(half_of_${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME} "development files")
set(half_of_${CPACK_DEBIAN_TOOL_PACKAGE_NAME} "command line")
set(together_${CPACK_DEBIAN_LIBRARY_PACKAGE_NAME} same)
set(together_${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME} same)
set(together_${CPACK_DEBIAN_TOOL_PACKAGE_NAME} foreign)

set(tree "${CPACK_TEMPORARY_DIRECTORY}/again")
foreach(package ${CPACK_PACKAGE_FILES})
  file(REMOVE_RECURSE "${tree}")
  execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${tree}" COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE "${tree}/DEBIAN/postinst" "${tree}/DEBIAN/postrm")
  file(READ "${tree}/DEBIAN/control" control)
  string(REGEX MATCH "Package: ([^\n]*)\n" found "${control}")
  set(name "${CMAKE_MATCH_1}")
  string(REGEX REPLACE "(\nDescription: [^\n]*)" "\\1 - ${half_of_${name}}" control "${control}")
  string(REPLACE "${found}" "${found}Multi-Arch: ${together_${name}}\n" control "${control}")
  file(WRITE "${tree}/DEBIAN/control" "${control}")
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build "${tree}" "${package}" OUTPUT_QUIET
                  COMMAND_ERROR_IS_FATAL ANY)
endforeach()

# Compiles the tests of each folder as one file: most of the time goes into what all of them include. Those of the short
# names choose other declarations of the interface and stay alone.
function(orba_compile_together target)
  get_target_property(sources ${target} SOURCES)
  foreach(source ${sources})
    get_filename_component(folder "${source}" DIRECTORY)
    get_filename_component(folder "${folder}" NAME)
    if(NOT source MATCHES "/short_names[a-z_]*\\.cpp$")
      set_source_files_properties("${source}" PROPERTIES UNITY_GROUP "${folder}")
    endif()
  endforeach()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
endfunction()

# Programs on bare Linux: linked with the C library for bare machines, whose calls Linux answers (newlib_calls.cpp), and
# with the host layer of the library, compiled with Linux's own headers for the same processor (linux_calls.cpp).
set(linux_compiler arm-linux-gnueabi-g++)
set(linux_flags -march=armv4t -marm -mfloat-abi=soft -O1 -std=c++17 -fno-exceptions -fno-rtti -fno-pic
                -fno-stack-protector -U_FORTIFY_SOURCE -Wall -Wextra -Werror -D_FILE_OFFSET_BITS=64
                -Dgmtime_r=linux_gmtime_r -DORBA_BUILD -DORB_NO_SHORT_NAMES "-I${root}/src" "-I${root}/include")

foreach(source ${posix_sources} "${CMAKE_CURRENT_SOURCE_DIR}/armv4/linux_calls.cpp")
  get_filename_component(name "${source}" NAME_WE)
  set(object "${CMAKE_BINARY_DIR}/linux-${name}.o")
  add_custom_command(OUTPUT "${object}" DEPENDS "${source}" DEPFILE "${object}.d"
                     COMMAND ${linux_compiler} ${linux_flags} -MD -MF "${object}.d" -c "${source}" -o "${object}"
                     VERBATIM)
  list(APPEND host_sources "${object}")
endforeach()
list(APPEND host_sources armv4/newlib_calls.cpp armv4/start.S)

include_directories(armv4)
# The two compilers differ about the size of enums, none of which crosses from one to the other.
add_link_options(-nostartfiles -Wl,--no-enum-size-warning,--no-warn-mismatch,-z,noexecstack,-Ttext-segment=0x10000)

# The converter of the device build and its tests. The images themselves are made by script/dist, which needs nothing of
# this, and run by script/test-device.
orba_glob(elf2pe_sources tools/elf2pe/*.cpp)
list(FILTER elf2pe_sources EXCLUDE REGEX "/main\\.cpp$")
add_library(elf2pe_objects OBJECT ${elf2pe_sources})
target_include_directories(elf2pe_objects PUBLIC tools/elf2pe)
add_executable(elf2pe tools/elf2pe/main.cpp)
target_link_libraries(elf2pe PRIVATE elf2pe_objects)

if(ORBA_TESTS)
  find_package(GTest REQUIRED)
  add_executable(elf2pe_tests tests/device/elf2pe_test.cpp)
  target_compile_options(elf2pe_tests PRIVATE -O0)  # as all tests
  target_link_libraries(elf2pe_tests PRIVATE elf2pe_objects GTest::gtest_main)
  orba_gtest(elf2pe_tests SHARDS 1 LABEL unit)
  add_test(NAME elf2pe_usage COMMAND elf2pe --machine sparc a b)
  set_tests_properties(elf2pe_usage PROPERTIES PASS_REGULAR_EXPRESSION "--machine is arm, thumb or thumb2, not sparc")

  # What the builds of the library exchange containers with.
  add_executable(exchange tests/device/exchange.cpp)
  target_link_libraries(exchange PRIVATE orba)
endif()

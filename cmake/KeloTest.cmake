# SPDX-License-Identifier: MIT
# Tests run in a root of their own (scripts/device-root), and each case in a process of its own, so that each starts
# with the library as just loaded and no case sees what another left behind.

if(KELO_GTEST_SOURCE)
  add_subdirectory(${KELO_GTEST_SOURCE} googletest EXCLUDE_FROM_ALL)
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

set(KELO_DEVICE_ROOT ${PROJECT_SOURCE_DIR}/scripts/device-root)

# Where namespaces are refused, the roots share the container's /dev and wait for each other. ctest then has to line
# them up, or the waiting would count against their timeouts.
execute_process(COMMAND ${KELO_DEVICE_ROOT} --which OUTPUT_VARIABLE kelo_root OUTPUT_STRIP_TRAILING_WHITESPACE)
set(KELO_TEST_PROPERTIES SKIP_RETURN_CODE 77)
if(kelo_root STREQUAL "container")
  list(APPEND KELO_TEST_PROPERTIES RESOURCE_LOCK device-root)
endif()

# The launcher of a test, as a list, into the variable `out`.
function(kelo_test_launcher out need path)
  set(launcher ${PROJECT_SOURCE_DIR}/scripts/run-test ${KELO_SANITIZER_ENVIRONMENT} KELO_BUILD_DIR=${CMAKE_BINARY_DIR}
               ${KELO_DEVICE_ROOT} --see ${CMAKE_BINARY_DIR})
  foreach(dir IN LISTS path)
    list(APPEND launcher --path ${dir})
  endforeach()
  if(need)
    list(APPEND launcher --need ${need})
  endif()
  set(${out} ${launcher} -- PARENT_SCOPE)
endfunction()

# The properties of a test that may take so many seconds (empty: 60), as a list, into the variable `out`. Those that
# say so begin first, the longest ahead: whoever comes last is waited for alone.
function(kelo_test_properties out seconds)
  if(seconds)
    set(time TIMEOUT ${seconds} COST ${seconds})
  else()
    set(time TIMEOUT 60)
  endif()
  set(${out} ${time} ${KELO_TEST_PROPERTIES} PARENT_SCOPE)
endfunction()

# kelo_add_test(target [TIMEOUT seconds] [LABELS label...] [NEED net] [PATH dir...])
# Registers every case of the GoogleTest executable `target`. PATH names folders of stand-in programs that come ahead
# of everything else in the PATH of the test.
function(kelo_add_test target)
  cmake_parse_arguments(arg "" "TIMEOUT;NEED" "LABELS;PATH" ${ARGN})
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "kelo_add_test(${target}): what is ${arg_UNPARSED_ARGUMENTS}?")
  endif()
  kelo_test_properties(properties "${arg_TIMEOUT}")
  kelo_test_launcher(launcher "${arg_NEED}" "${arg_PATH}")
  set_target_properties(${target} PROPERTIES CROSSCOMPILING_EMULATOR "${launcher};${CMAKE_CROSSCOMPILING_EMULATOR}")
  gtest_discover_tests(${target}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES ${properties})
  if(arg_LABELS) # a list, which gtest_discover_tests would take apart: set once the cases are known
    set(file ${CMAKE_CURRENT_BINARY_DIR}/${target}_labels.cmake)
    file(WRITE ${file} "set_tests_properties(\${${target}_TESTS} PROPERTIES LABELS \"${arg_LABELS}\")\n")
    set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${file})
  endif()
endfunction()

# kelo_add_script_test(name [TIMEOUT seconds] [LABELS label...] [NEED net] [PATH dir...] COMMAND command [argument...])
# A test whose exit status says how it went: 0 passed, 77 skipped. KELO_BUILD_DIR names the build folder.
function(kelo_add_script_test name)
  cmake_parse_arguments(arg "" "TIMEOUT;NEED" "LABELS;PATH;COMMAND" ${ARGN})
  if(NOT arg_COMMAND)
    message(FATAL_ERROR "kelo_add_script_test(${name}): no COMMAND")
  endif()
  kelo_test_properties(properties "${arg_TIMEOUT}")
  kelo_test_launcher(launcher "${arg_NEED}" "${arg_PATH}")
  add_test(NAME ${name} COMMAND ${launcher} ${arg_COMMAND} WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR})
  set_tests_properties(${name} PROPERTIES ${properties})
  if(arg_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}")
  endif()
endfunction()

# A test is compiled more often than it runs, and waits when it does.
if(CMAKE_BUILD_TYPE STREQUAL RelWithDebInfo)
  set(KELO_TEST_OPTIONS -O1 -g1)
endif()

# What every test of a room begins with is compiled once: half of the time of a test's build went into it.
add_library(kelo_testing OBJECT ${PROJECT_SOURCE_DIR}/tests/testing.cpp)
target_include_directories(kelo_testing PRIVATE ${PROJECT_SOURCE_DIR})
target_link_libraries(kelo_testing PRIVATE kelo_objects kelo_warnings GTest::gtest_main)
target_compile_options(kelo_testing PRIVATE ${KELO_TEST_OPTIONS})
target_precompile_headers(kelo_testing PRIVATE ${PROJECT_SOURCE_DIR}/tests/testing.h)

# kelo_add_room_test(target source... [NEED net] [PATH dir...])
# The tests of one room of the library: GoogleTest on its objects, so that they reach behind the exported calls.
function(kelo_add_room_test target)
  cmake_parse_arguments(arg "" "NEED" "PATH;LINK" ${ARGN})
  add_executable(${target} ${arg_UNPARSED_ARGUMENTS})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE kelo_objects kelo_warnings GTest::gtest_main ${arg_LINK})
  target_precompile_headers(${target} REUSE_FROM kelo_testing)
  # Out of a precompiled header gcc 12 takes the C++ library's own code for ours, and warns of it.
  target_compile_options(${target} PRIVATE -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow)
  set(options "")
  if(arg_NEED)
    list(APPEND options NEED ${arg_NEED})
  endif()
  if(arg_PATH)
    list(APPEND options PATH ${arg_PATH})
  endif()
  kelo_add_test(${target} ${options})
endfunction()

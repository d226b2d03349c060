# add_mapura_test(NAME name SOURCES ... [LIBS ...] [LABELS ...] [TIMEOUT s])
#   A GoogleTest executable; each test case becomes a ctest test.
# add_mapura_qtest(NAME name SOURCES ... [LIBS ...] [LABELS ...] [TIMEOUT s])
#   A Qt Test executable (one ctest test); needs a display (the test command runs under xvfb-run).
#
# MAPURA_TESTS, when not empty, names the test executables to build and run (the arm64 job under
# emulation runs a chosen few); the others stay out of the default build and out of ctest.
# MAPURA_TEST_LAUNCHER is the command prefix a test puts before a program built here that it
# starts itself (the emulator in a cross build, else nothing).
find_package(GTest REQUIRED)
include(GoogleTest)

set(MAPURA_TESTS "" CACHE STRING "Test executables to build and run (a list; empty for all)")
set(MAPURA_TEST_LAUNCHER "")
if(CMAKE_CROSSCOMPILING_EMULATOR)
  list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " MAPURA_TEST_LAUNCHER)
  string(APPEND MAPURA_TEST_LAUNCHER " ")
endif()

# True when the test executable `name` is built and run.
function(mapura_test_selected name out)
  if(NOT MAPURA_TESTS OR name IN_LIST MAPURA_TESTS)
    set(${out} TRUE PARENT_SCOPE)
  else()
    set(${out} FALSE PARENT_SCOPE)
  endif()
endfunction()

# A test's time limit in seconds (300 when not given), four times longer in a sanitizer build.
# `qtest_ms_var` receives the limit of one Qt Test function, ten seconds less, in milliseconds.
macro(mapura_test_timeout var qtest_ms_var)
  if(NOT ${var})
    set(${var} 300)
  endif()
  if(MAPURA_SANITIZER)
    math(EXPR ${var} "${${var}} * 4")
  endif()
  math(EXPR ${qtest_ms_var} "(${${var}} - 10) * 1000")
endmacro()

function(add_mapura_test)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  mapura_test_timeout(T_TIMEOUT _unused)
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} mapura::test_utils GTest::gtest GTest::gtest_main
                                          mapura::warnings)
  mapura_test_selected(${T_NAME} _selected)
  if(NOT _selected)
    set_target_properties(${T_NAME} PROPERTIES EXCLUDE_FROM_ALL TRUE)
    return()
  endif()
  if(CMAKE_CROSSCOMPILING_EMULATOR)
    math(EXPR T_TIMEOUT "${T_TIMEOUT} * 3")  # emulation runs several times slower
  endif()
  set(_props TIMEOUT ${T_TIMEOUT} ENVIRONMENT "MAPURA_SHARED_DATA=${MAPURA_SHARED_DATA_DIR}")
  if(T_LABELS)
    list(APPEND _props LABELS "${T_LABELS}")
  endif()
  # Listing a test binary's cases loads OpenCV and the CUDA runtime; on a busy machine with a cold
  # disk cache that can take longer than the default 5 s.
  gtest_discover_tests(${T_NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES ${_props})
endfunction()

function(add_mapura_qtest)
  cmake_parse_arguments(T "" "NAME;TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  mapura_test_timeout(T_TIMEOUT _function_ms)
  add_executable(${T_NAME} ${T_SOURCES})
  target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} Qt5::Test mapura::warnings)
  mapura_test_selected(${T_NAME} _selected)
  if(NOT _selected)
    set_target_properties(${T_NAME} PROPERTIES EXCLUDE_FROM_ALL TRUE)
    return()
  endif()
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  set_tests_properties(${T_NAME} PROPERTIES LABELS "gui;${T_LABELS}" TIMEOUT ${T_TIMEOUT}
    ENVIRONMENT "MAPURA_SHARED_DATA=${MAPURA_SHARED_DATA_DIR};QTEST_FUNCTION_TIMEOUT=${_function_ms}")
endfunction()

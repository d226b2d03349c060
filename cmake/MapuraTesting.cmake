# add_mapura_test(NAME name SOURCES ... [LIBS ...] [LABELS ...] [TIMEOUT s])
#   A GoogleTest executable; each test case becomes a ctest test.
# add_mapura_qtest(NAME name SOURCES ... [LIBS ...] [LABELS ...] [TIMEOUT s])
#   A Qt Test executable (one ctest test); needs a display (the test command runs under xvfb-run).
find_package(GTest REQUIRED)
include(GoogleTest)

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
  add_test(NAME ${T_NAME} COMMAND ${T_NAME})
  set_tests_properties(${T_NAME} PROPERTIES LABELS "gui;${T_LABELS}" TIMEOUT ${T_TIMEOUT}
    ENVIRONMENT "MAPURA_SHARED_DATA=${MAPURA_SHARED_DATA_DIR};QTEST_FUNCTION_TIMEOUT=${_function_ms}")
endfunction()

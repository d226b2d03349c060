# Warnings for our own targets (link `mapura::warnings` privately), and ccache when present.
add_library(mapura_warnings INTERFACE)
add_library(mapura::warnings ALIAS mapura_warnings)
target_compile_options(mapura_warnings INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wno-unused-parameter>)
if(MAPURA_WERROR)
  target_compile_options(mapura_warnings INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Werror>)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  set(CMAKE_CUDA_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

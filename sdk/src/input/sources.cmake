target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/rectifier.cpp
  ${CMAKE_CURRENT_LIST_DIR}/playback_source.cpp
  ${CMAKE_CURRENT_LIST_DIR}/live_devices.cpp
  ${CMAKE_CURRENT_LIST_DIR}/v4l2_source.cpp)

# The rectification's vector kernels: the portable one once per instruction set, and AVX-512's;
# the library picks one at run time.
target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/remap_table.cpp
  ${CMAKE_CURRENT_LIST_DIR}/remap_kernel_baseline.cpp)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64" AND CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  target_sources(pv_pavo PRIVATE ${CMAKE_CURRENT_LIST_DIR}/remap_kernel_avx2.cpp ${CMAKE_CURRENT_LIST_DIR}/remap_avx512.cpp)
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/remap_avx512.cpp PROPERTIES COMPILE_OPTIONS "-march=x86-64-v4")
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/remap_kernel_avx2.cpp PROPERTIES COMPILE_OPTIONS "-march=x86-64-v3")
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/remap_table.cpp PROPERTIES COMPILE_DEFINITIONS PV_REMAP_ISA_BUILDS)
endif()

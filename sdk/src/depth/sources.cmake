target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/camera_depth.cpp
  ${CMAKE_CURRENT_LIST_DIR}/confidence.cpp
  ${CMAKE_CURRENT_LIST_DIR}/depth_filtering.cpp
  ${CMAKE_CURRENT_LIST_DIR}/depth_view.cpp
  ${CMAKE_CURRENT_LIST_DIR}/disparity_upsampling.cpp
  ${CMAKE_CURRENT_LIST_DIR}/edge_aware_filter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/global_smoother.cpp
  ${CMAKE_CURRENT_LIST_DIR}/hole_fill.cpp
  ${CMAKE_CURRENT_LIST_DIR}/left_right_check.cpp
  ${CMAKE_CURRENT_LIST_DIR}/match_doubt.cpp
  ${CMAKE_CURRENT_LIST_DIR}/census.cpp
  ${CMAKE_CURRENT_LIST_DIR}/census_sgm.cpp
  ${CMAKE_CURRENT_LIST_DIR}/disparity_refinement.cpp
  ${CMAKE_CURRENT_LIST_DIR}/speckle_filter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stereo_dataset.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stereo_engine.cpp)

# The matcher's row kernel, once per instruction set; the library picks one at run time.
target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/census_sgm_avx512_popcount.cpp
  ${CMAKE_CURRENT_LIST_DIR}/census_sgm_avx512.cpp
  ${CMAKE_CURRENT_LIST_DIR}/census_sgm_avx2.cpp
  ${CMAKE_CURRENT_LIST_DIR}/census_sgm_baseline.cpp)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64" AND CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/census_sgm_avx512_popcount.cpp
                              PROPERTIES COMPILE_OPTIONS "-march=x86-64-v4;-mavx512vpopcntdq")
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/census_sgm_avx512.cpp PROPERTIES COMPILE_OPTIONS "-march=x86-64-v4")
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/census_sgm_avx2.cpp PROPERTIES COMPILE_OPTIONS "-march=x86-64-v3")
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/census_sgm.cpp PROPERTIES COMPILE_DEFINITIONS PV_SGM_ISA_BUILDS)
  # The refinement's offset costs with gathers and bit counts.
  target_sources(pv_pavo PRIVATE ${CMAKE_CURRENT_LIST_DIR}/refine_costs_avx512.cpp)
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/refine_costs_avx512.cpp
                              PROPERTIES COMPILE_OPTIONS "-march=x86-64-v4;-mavx512vpopcntdq")
  set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/disparity_refinement.cpp APPEND PROPERTY COMPILE_DEFINITIONS
               PV_REFINE_AVX512)
  # The smoother's horizontal pass, sixteen rows at a time; without fused multiply-adds, so that it
  # computes exactly what the scalar pass computes.
  target_sources(pv_pavo PRIVATE ${CMAKE_CURRENT_LIST_DIR}/global_smoother_avx512.cpp)
  set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/global_smoother_avx512.cpp
                              PROPERTIES COMPILE_OPTIONS "-march=x86-64-v4;-ffp-contract=off")
  set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/global_smoother.cpp APPEND PROPERTY COMPILE_DEFINITIONS
               PV_SMOOTHER_AVX512)
endif()

# The confidence is the same on every CPU: its vector clones make no fused multiply-adds.
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/confidence.cpp ${CMAKE_CURRENT_LIST_DIR}/match_doubt.cpp APPEND
               PROPERTY COMPILE_OPTIONS "-ffp-contract=off")
endif()

# The row loops of these files select with comparisons (NaN marks invalid pixels); without trapping
# floating point (nothing here reads the exception flags) the compiler turns them into vector
# blends instead of branches.
if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
  set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/depth_filtering.cpp ${CMAKE_CURRENT_LIST_DIR}/disparity_upsampling.cpp
                      ${CMAKE_CURRENT_LIST_DIR}/disparity_refinement.cpp ${CMAKE_CURRENT_LIST_DIR}/census.cpp
                      ${CMAKE_CURRENT_LIST_DIR}/edge_aware_filter.cpp ${CMAKE_CURRENT_LIST_DIR}/global_smoother.cpp
                      ${CMAKE_CURRENT_LIST_DIR}/stereo_engine.cpp ${CMAKE_CURRENT_LIST_DIR}/confidence.cpp
                      ${CMAKE_CURRENT_LIST_DIR}/left_right_check.cpp ${CMAKE_CURRENT_LIST_DIR}/match_doubt.cpp
               APPEND PROPERTY COMPILE_OPTIONS "-fno-trapping-math")
endif()

target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/camera_mapping.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/band_blocks.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/mapping_module.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/marching_cubes.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/surface_distance.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/tsdf_volume.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/voxel_update.cpp)
# The depth filter and the voxel update select between values computed unconditionally; without
# trapping-math semantics (the SDK never reads floating-point exception flags) they vectorise.
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/internal/band_blocks.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/voxel_update.cpp PROPERTIES COMPILE_OPTIONS
  "$<$<CXX_COMPILER_ID:GNU,Clang>:-fno-trapping-math>")

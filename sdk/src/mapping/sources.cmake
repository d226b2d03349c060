target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/camera_mapping.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/band_blocks.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/mapping_module.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/marching_cubes.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/surface_distance.cpp
  ${CMAKE_CURRENT_LIST_DIR}/internal/tsdf_volume.cpp)

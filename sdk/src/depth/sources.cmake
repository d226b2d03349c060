target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/camera_depth.cpp
  ${CMAKE_CURRENT_LIST_DIR}/confidence.cpp
  ${CMAKE_CURRENT_LIST_DIR}/depth_filtering.cpp
  ${CMAKE_CURRENT_LIST_DIR}/depth_view.cpp
  ${CMAKE_CURRENT_LIST_DIR}/disparity_upsampling.cpp
  ${CMAKE_CURRENT_LIST_DIR}/edge_aware_filter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/hole_fill.cpp
  ${CMAKE_CURRENT_LIST_DIR}/left_right_check.cpp
  ${CMAKE_CURRENT_LIST_DIR}/semi_global_matching.cpp
  ${CMAKE_CURRENT_LIST_DIR}/speckle_filter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stereo_dataset.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stereo_engine.cpp)

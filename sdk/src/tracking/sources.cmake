target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/area_memory.cpp
  ${CMAKE_CURRENT_LIST_DIR}/camera_tracking.cpp
  ${CMAKE_CURRENT_LIST_DIR}/motion_model.cpp
  ${CMAKE_CURRENT_LIST_DIR}/optimisation.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sparse_alignment.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stereo_features.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stereo_odometry.cpp
  ${CMAKE_CURRENT_LIST_DIR}/tracking_engine.cpp
  ${CMAKE_CURRENT_LIST_DIR}/trajectory_eval.cpp
  ${CMAKE_CURRENT_LIST_DIR}/trajectory_store.cpp)
# Area files are the tracking module's own format; their reader and writer live with the io code.
target_sources(pv_pavo PRIVATE ${CMAKE_CURRENT_LIST_DIR}/../io/area_file.cpp)

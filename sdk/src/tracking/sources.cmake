target_sources(pv_pavo PRIVATE ${CMAKE_CURRENT_LIST_DIR}/camera_tracking.cpp)

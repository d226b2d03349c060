target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/rectifier.cpp
  ${CMAKE_CURRENT_LIST_DIR}/playback_source.cpp
  ${CMAKE_CURRENT_LIST_DIR}/live_devices.cpp
  ${CMAKE_CURRENT_LIST_DIR}/v4l2_source.cpp)

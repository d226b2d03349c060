target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/scene.cpp
  ${CMAKE_CURRENT_LIST_DIR}/motion.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sequence.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ground_truth.cpp)

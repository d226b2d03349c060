target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/defines.cpp
  ${CMAKE_CURRENT_LIST_DIR}/error.cpp
  ${CMAKE_CURRENT_LIST_DIR}/math.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mat.cpp
  ${CMAKE_CURRENT_LIST_DIR}/gpu_memory.cpp
  ${CMAKE_CURRENT_LIST_DIR}/types.cpp
  ${CMAKE_CURRENT_LIST_DIR}/camera.cpp
  ${CMAKE_CURRENT_LIST_DIR}/coordinates.cpp
  ${CMAKE_CURRENT_LIST_DIR}/cpu_features.cpp
  ${CMAKE_CURRENT_LIST_DIR}/heap_policy.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sanitizer_threads.cpp
  ${CMAKE_CURRENT_LIST_DIR}/thread_limit.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mesh_objects.cpp)
if(MAPURA_WITH_CUDA)
  target_sources(pv_pavo PRIVATE ${CMAKE_CURRENT_LIST_DIR}/mat_fill.cu)
endif()

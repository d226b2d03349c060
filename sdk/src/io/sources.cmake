target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ktr_metadata.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ktr_writer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ktr_reader.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ktr_side_files.cpp
  ${CMAKE_CURRENT_LIST_DIR}/stereo_folder.cpp
  ${CMAKE_CURRENT_LIST_DIR}/euroc_folder.cpp
  ${CMAKE_CURRENT_LIST_DIR}/kitti_folder.cpp
  ${CMAKE_CURRENT_LIST_DIR}/pair_folder.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ktr_import.cpp)

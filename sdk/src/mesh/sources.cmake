# Map objects: files (the PLY and OBJ readers and writers live in io/ but belong to this module),
# chunking, filtering and texturing.
target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/chunking.cpp
  ${CMAKE_CURRENT_LIST_DIR}/file_util.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mesh_convert.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mesh_files.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mesh_filter.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mesh_texture.cpp
  ${CMAKE_CURRENT_LIST_DIR}/polygon.cpp
  ${CMAKE_CURRENT_LIST_DIR}/texture_atlas.cpp
  ${CMAKE_CURRENT_LIST_DIR}/texture_select.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../io/ply_reader.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../io/ply_writer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../io/obj_reader.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../io/obj_writer.cpp)

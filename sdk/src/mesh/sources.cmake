# Map objects: files (PLY, OBJ readers and writers live in io/ but belong to this module),
# chunking, filtering and texturing.
target_sources(pv_pavo PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/chunking.cpp
  ${CMAKE_CURRENT_LIST_DIR}/file_util.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mesh_convert.cpp
  ${CMAKE_CURRENT_LIST_DIR}/mesh_files.cpp
  ${CMAKE_CURRENT_LIST_DIR}/pending.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../io/ply_reader.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../io/ply_writer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../io/obj_reader.cpp
  ${CMAKE_CURRENT_LIST_DIR}/../io/obj_writer.cpp)

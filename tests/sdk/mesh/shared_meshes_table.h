// What each mesh file in the shared data set is expected to give, with the reason for each
// file that is not read as a mesh.
#pragma once

namespace mapura::test {

enum class Loads { MESH, POINT_CLOUD_ONLY, REFUSED };

struct SharedMeshCase {
  const char* file;  ///< relative to the shared data folder
  Loads loads;
  const char* reason;  ///< why it is not a mesh; a word the error text must contain when refused
};

// Every PLY and OBJ file of data/meshes.
inline constexpr SharedMeshCase kSharedMeshes[] = {
    {"meshes/assimp_testmodels/OBJ/WusonOBJ.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/box.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/box_UTF16BE.obj", Loads::REFUSED, "UTF-16"},
    {"meshes/assimp_testmodels/OBJ/box_longline.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/box_mat_with_spaces.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/box_without_lineending.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/concave_polygon.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/cube_mtllib_after_g.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/cube_usemtl.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/cube_with_vertexcolors.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/cube_with_vertexcolors_uni.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/empty_mat.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/mtl_different_folder.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/multiple_spaces.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/number_formats.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/only_a_part_of_vertexcolors.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/point_cloud.obj", Loads::POINT_CLOUD_ONLY, "points only"},
    {"meshes/assimp_testmodels/OBJ/regr01.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/space_in_material_name.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/spider.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/testline.obj", Loads::POINT_CLOUD_ONLY, "lines only"},
    {"meshes/assimp_testmodels/OBJ/testmixed.obj", Loads::MESH, ""},
    {"meshes/assimp_testmodels/OBJ/testpoints.obj", Loads::POINT_CLOUD_ONLY, "points only"},
    {"meshes/assimp_testmodels/PLY/Wuson.ply", Loads::MESH, ""},
    {"meshes/assimp_testmodels/PLY/cube.ply", Loads::MESH, ""},
    {"meshes/assimp_testmodels/PLY/cube_binary.ply", Loads::MESH, ""},
    {"meshes/assimp_testmodels/PLY/cube_binary_header_with_RN_newline.ply", Loads::MESH, ""},
    // Its first data byte is 0x0a (part of the first float); assimp's processed import skips it
    // as a line end and fails, read as data it is the 8-vertex, 6-quad cube it claims to be.
    {"meshes/assimp_testmodels/PLY/cube_binary_starts_with_nl.ply", Loads::MESH, ""},
    {"meshes/assimp_testmodels/PLY/cube_uv.ply", Loads::MESH, ""},
    {"meshes/assimp_testmodels/PLY/float-color.ply", Loads::MESH, ""},
    // The vertex element declares a list property that no data line carries.
    {"meshes/assimp_testmodels/PLY/issue623.ply", Loads::REFUSED, "too few values"},
    {"meshes/assimp_testmodels/PLY/points.ply", Loads::POINT_CLOUD_ONLY, "no face element"},
    {"meshes/assimp_testmodels/PLY/pond.0.ply", Loads::POINT_CLOUD_ONLY, "no face element"},
    {"meshes/trimesh_models/BoxTextured.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/box.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/capsule.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/cube.OBJ", Loads::MESH, ""},
    {"meshes/trimesh_models/cube_blender_uv.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/cube_blender_uv_meshlab.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/cube_compressed.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/cubevt.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/cycloidal.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/empty.obj", Loads::REFUSED, "no vertices"},
    {"meshes/trimesh_models/empty.ply", Loads::REFUSED, "no vertices"},
    {"meshes/trimesh_models/emptyIO/obj_empty.obj", Loads::REFUSED, "no vertices"},
    {"meshes/trimesh_models/emptyIO/obj_points.obj", Loads::POINT_CLOUD_ONLY, "points only"},
    {"meshes/trimesh_models/emptyIO/obj_wireframe.obj", Loads::POINT_CLOUD_ONLY, "lines only"},
    {"meshes/trimesh_models/emptyIO/ply_empty_ascii.ply", Loads::REFUSED, "no vertices"},
    {"meshes/trimesh_models/emptyIO/ply_empty_bin.ply", Loads::REFUSED, "no vertices"},
    {"meshes/trimesh_models/emptyIO/ply_empty_header.ply", Loads::REFUSED, "no vertices"},
    {"meshes/trimesh_models/emptyIO/ply_points_ascii.ply", Loads::POINT_CLOUD_ONLY, "no face element"},
    {"meshes/trimesh_models/emptyIO/ply_points_bin.ply", Loads::POINT_CLOUD_ONLY, "no face element"},
    // A group name holds " f "; the file has one vertex and no face.
    {"meshes/trimesh_models/face_in_group_name.obj", Loads::POINT_CLOUD_ONLY, "no face"},
    {"meshes/trimesh_models/face_in_group_name_mid_file.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/fuze.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/fuze.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/fuze_ascii.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/groups.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/ico4uv.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/jacked.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/metadata.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/mirror.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/multi.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/nancolor.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/negative_indices.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/noimg.obj", Loads::MESH, ""},
    // Its first face has two corners: a corrupt mesh, but its vertices make a point cloud.
    {"meshes/trimesh_models/notenoughindices.obj", Loads::POINT_CLOUD_ONLY, "fewer than three"},
    {"meshes/trimesh_models/obj_with_no_face_in_chunk.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/points_ascii.ply", Loads::POINT_CLOUD_ONLY, "no face element"},
    {"meshes/trimesh_models/points_ascii_with_lists.ply", Loads::POINT_CLOUD_ONLY, "no face element"},
    {"meshes/trimesh_models/points_bin.ply", Loads::POINT_CLOUD_ONLY, "no face element"},
    {"meshes/trimesh_models/points_emptyface.ply", Loads::POINT_CLOUD_ONLY, "zero faces"},
    {"meshes/trimesh_models/polygonfaces.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/quadknot.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/rabbit.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/reference.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/singlevn.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/sphere.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/suzanne.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/tet.ply", Loads::MESH, ""},
    {"meshes/trimesh_models/textured_tetrahedron.obj", Loads::MESH, ""},
    {"meshes/trimesh_models/two_objects.obj", Loads::MESH, ""},
    {"meshes/ycb_banana_textured_obj/textured_simple_reoriented.obj", Loads::MESH, ""},
};

}  // namespace mapura::test

// `pavo mesh-info FILE` on files we write: a textured mesh, a point cloud, a corrupt file.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "mesh_test_utils.h"
#include "pv/mesh.h"
#include "test_utils.h"

namespace {

using mapura::test::CommandRun;

CommandRun runTool(const std::string& file) { return mapura::test::runCommand(PAVO_EXE, "mesh-info '" + file + "'"); }

TEST(MeshInfoTool, PrintsTrianglesPointsTextureAndChunks) {
  const std::string dir = mapura::test::scratchDir("mesh_info_tool");
  pv::Mesh mesh = mapura::test::makeSphereMesh(1.f, 150, 300);  // 90 000 triangles
  mesh.texture.alloc(8, 8, pv::MAT_TYPE::U8_C3);
  mesh.texture.setTo(pv::uchar4(1, 2, 3, 4));
  ASSERT_TRUE(mesh.save((dir + "/scan.obj").c_str(), pv::MESH_FILE_FORMAT::OBJ));
  pv::Mesh loaded;
  ASSERT_TRUE(loaded.load((dir + "/scan.obj").c_str()));
  const CommandRun textured = runTool(dir + "/scan.obj");
  EXPECT_EQ(textured.status, 0);
  EXPECT_EQ(textured.out, "triangles: 90000\npoints: " + std::to_string(loaded.getNumberOfPoints()) +
                              "\ntextured: yes\nchunks: " + std::to_string(loaded.chunks.size()) + "\n");
  EXPECT_GT(loaded.chunks.size(), 1u);

  ASSERT_TRUE(mesh.save((dir + "/scan.ply").c_str(), pv::MESH_FILE_FORMAT::PLY));
  EXPECT_EQ(runTool(dir + "/scan.ply").out.find("textured: no"),
            std::string("triangles: 90000\npoints: " + std::to_string(mesh.vertices.size()) + "\n").size());

  pv::FusedPointCloud cloud;
  for (const pv::float3& v : mesh.vertices) cloud.vertices.push_back({v.x, v.y, v.z, 0.f});
  ASSERT_TRUE(cloud.save((dir + "/cloud.ply").c_str(), pv::MESH_FILE_FORMAT::PLY));
  const CommandRun points = runTool(dir + "/cloud.ply");
  EXPECT_EQ(points.status, 0);
  EXPECT_EQ(points.out.rfind(
                "triangles: 0\npoints: " + std::to_string(cloud.vertices.size()) + "\ntextured: no\nchunks: ", 0),
            0u)
      << points.out;

  std::ofstream(dir + "/broken.ply") << "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nend_header\n1\n";
  const CommandRun broken = runTool(dir + "/broken.ply");
  EXPECT_NE(broken.status, 0);
  EXPECT_NE(broken.out.find("pavo mesh-info: cannot open"), std::string::npos) << broken.out;
}

}  // namespace

// Every mesh and point cloud file of the shared data set, read as the application opens a map
// (mesh first, then point cloud), with the counts compared with Debian's `assimp info`.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "assimp_info.h"
#include "mesh_test_utils.h"
#include "pv/mesh.h"
#include "shared_meshes_table.h"
#include "test_utils.h"

namespace {

using mapura::test::AssimpInfo;
using mapura::test::kSharedMeshes;
using mapura::test::Loads;

bool endsWith(const std::string& s, const char* suffix) {
  const std::string t(suffix);
  return s.size() >= t.size() && s.compare(s.size() - t.size(), t.size(), t) == 0;
}

// Triangles the file holds as assimp sees them. Without points or lines in the raw import, all
// faces are polygons, counted after triangulation (assimp turns degenerate triangles into lines
// afterwards, so the raw count is used when the file already holds triangles only). With points
// or lines, only its triangle meshes count.
size_t assimpTriangles(const AssimpInfo& raw, const AssimpInfo& processed) {
  const bool has_points_or_lines =
      raw.types.find("points") != std::string::npos || raw.types.find("lines") != std::string::npos;
  if (!has_points_or_lines) return raw.types == "triangles" ? raw.faces : processed.faces;
  size_t n = 0;
  for (const AssimpInfo::Part& p : processed.meshes)
    if (p.type == "triangle") n += p.faces;
  return n;
}

TEST(SharedMeshFiles, LoadLikeAssimpOrAreRefusedWithTheirReason) {
  const std::string root = mapura::test::sharedDataPath("meshes");
  if (root.empty()) GTEST_SKIP() << "shared data missing: meshes";
  const bool assimp = mapura::test::assimpAvailable();
  std::printf("%-62s %-10s %9s %9s %7s %6s | %s\n", "file", "opened as", "triangles", "points", "chunks", "tex",
              assimp ? "assimp triangles / points" : "assimp not installed");
  size_t compared = 0;
  for (const auto& c : kSharedMeshes) {
    SCOPED_TRACE(c.file);
    const std::string path = mapura::test::sharedDataPath(c.file);
    ASSERT_FALSE(path.empty()) << "listed file missing";
    pv::Mesh mesh;
    pv::FusedPointCloud cloud;
    const bool as_mesh = mesh.load(path.c_str());
    const std::string mesh_error = pv::lastErrorDetail().str();
    const bool as_cloud = !as_mesh && cloud.load(path.c_str());
    const std::string cloud_error = pv::lastErrorDetail().str();

    switch (c.loads) {
      case Loads::MESH:
        ASSERT_TRUE(as_mesh) << mesh_error;
        EXPECT_EQ(mesh.getNumberOfTriangles(), mapura::test::chunkTriangleSet(mesh).size());
        EXPECT_EQ(mapura::test::triangleSet(mesh.vertices, mesh.triangles), mapura::test::chunkTriangleSet(mesh));
        break;
      case Loads::POINT_CLOUD_ONLY:
        EXPECT_FALSE(as_mesh);
        EXPECT_TRUE(mesh.chunks.empty() && mesh.vertices.empty());
        ASSERT_TRUE(as_cloud) << cloud_error;
        break;
      case Loads::REFUSED:
        EXPECT_FALSE(as_mesh);
        EXPECT_FALSE(as_cloud);
        EXPECT_NE(cloud_error.find(c.reason), std::string::npos) << cloud_error;
        break;
    }
    const size_t triangles = as_mesh ? mesh.getNumberOfTriangles() : 0;
    const size_t points = as_mesh ? mesh.getNumberOfPoints() : cloud.getNumberOfPoints();
    std::string theirs = "-";
    if (assimp) {
      const AssimpInfo raw = mapura::test::assimpInfo(path, true);
      const AssimpInfo processed = mapura::test::assimpInfo(path, false);
      if (raw.loaded) {
        const size_t their_triangles = assimpTriangles(raw, processed);
        theirs = std::to_string(their_triangles) + " / " + std::to_string(raw.vertices);
        // A file assimp cannot post-process (it rejects the result) is not compared.
        if (processed.loaded || raw.types == "points") {
          EXPECT_EQ(triangles, their_triangles);
          // OBJ vertex counts differ by design (assimp splits per material and per corner); a
          // PLY's vertex element is read as it is by both.
          if (endsWith(path, ".ply")) {
            EXPECT_EQ(points, raw.vertices);
          }
          ++compared;
        } else {
          theirs += " (assimp refuses after import)";
        }
      } else {
        theirs = "refused by assimp";
      }
    }
    const char* opened = as_mesh ? "mesh" : as_cloud ? "points" : "refused";
    std::printf("%-62s %-10s %9zu %9zu %7zu %6s | %s%s%s\n", c.file + 7, opened, triangles, points,
                as_mesh ? mesh.chunks.size() : cloud.chunks.size(), as_mesh && mesh.texture.isInit() ? "yes" : "no",
                theirs.c_str(), *c.reason ? " ; " : "",
                *c.reason ? (as_mesh || as_cloud ? c.reason : (as_mesh ? "" : cloud_error.c_str())) : "");
  }
  std::printf("compared with assimp: %zu files\n", compared);
}

TEST(SharedMeshFiles, BinaryDataStartingWithALineFeedIsData) {
  MAPURA_REQUIRE_SHARED(path, "meshes/assimp_testmodels/PLY/cube_binary_starts_with_nl.ply");
  pv::Mesh cube;
  ASSERT_TRUE(cube.load(path.c_str()));
  ASSERT_EQ(cube.vertices.size(), 8u);
  pv::float3 lo = cube.vertices[0], hi = cube.vertices[0];
  for (const pv::float3& v : cube.vertices)
    for (size_t a = 0; a < 3; ++a) {
      lo[a] = std::min(lo[a], v[a]);
      hi[a] = std::max(hi[a], v[a]);
    }
  EXPECT_NEAR(lo.y, 0.f, 1e-6f);
  EXPECT_NEAR(hi.y, 1.f, 1e-6f) << "a unit cube, not bytes read one off";
  EXPECT_NEAR(hi.z - lo.z, 1.f, 1e-6f);
  EXPECT_EQ(cube.getNumberOfTriangles(), 12u);
}

TEST(SharedMeshFiles, TexturedScansCarryTheirImage) {
  MAPURA_REQUIRE_SHARED(banana, "meshes/ycb_banana_textured_obj/textured_simple_reoriented.obj");
  pv::Mesh mesh;
  ASSERT_TRUE(mesh.load(banana.c_str()));
  EXPECT_EQ(mesh.getNumberOfTriangles(), 15728u);
  ASSERT_TRUE(mesh.texture.isInit());
  EXPECT_EQ(mesh.texture.getChannels(), 3);
  EXPECT_EQ(mesh.uv.size(), mesh.vertices.size());
  for (const pv::float2& t : mesh.uv) {
    ASSERT_GE(t.x, -0.01f);
    ASSERT_LE(t.x, 1.01f);
  }
  // The texture named "fuze uv.jpg" (a blank in the name) is found.
  MAPURA_REQUIRE_SHARED(fuze, "meshes/trimesh_models/fuze.obj");
  pv::Mesh bottle;
  ASSERT_TRUE(bottle.load(fuze.c_str()));
  EXPECT_TRUE(bottle.texture.isInit());
  // The spider's map_Kd paths use backslashes (".\SpiderTex.jpg").
  MAPURA_REQUIRE_SHARED(spider, "meshes/assimp_testmodels/OBJ/spider.obj");
  pv::Mesh s;
  ASSERT_TRUE(s.load(spider.c_str()));
  EXPECT_TRUE(s.texture.isInit());
}

TEST(SharedMeshFiles, ColoursAreReadWhateverTheirType) {
  MAPURA_REQUIRE_SHARED(float_color, "meshes/assimp_testmodels/PLY/float-color.ply");
  pv::Mesh mesh;
  ASSERT_TRUE(mesh.load(float_color.c_str()));
  ASSERT_EQ(mesh.colors.size(), 3u);
  // Float colours in 0..1 become bytes; the file's vertices are pure blue.
  EXPECT_EQ(mesh.colors[0], pv::uchar3(0, 0, 255));
  MAPURA_REQUIRE_SHARED(pond, "meshes/assimp_testmodels/PLY/pond.0.ply");
  pv::FusedPointCloud cloud;
  ASSERT_TRUE(cloud.load(pond.c_str()));
  size_t coloured = 0;
  for (const pv::float4& p : cloud.vertices) {
    uint32_t bits;
    std::memcpy(&bits, &p.w, 4);
    coloured += bits != 0xffffff;
  }
  EXPECT_GT(coloured, cloud.vertices.size() / 2) << "diffuse_red/green/blue are colours";
  EXPECT_GT(cloud.chunks.size(), 1u);
}

}  // namespace

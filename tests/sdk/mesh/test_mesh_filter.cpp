// Mesh::filter on a synthetic noisy scan with known ground truth.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <set>

#include "mesh_test_utils.h"
#include "pv/mesh.h"
#include "synthetic_scan.h"

namespace {

using mapura::test::meanSurfaceError;
using pv::MeshFilterParameters;

size_t duplicatePositions(const pv::Mesh& m) {
  std::set<std::array<float, 3>> seen;
  for (const pv::float3& v : m.vertices) seen.insert({v.x, v.y, v.z});
  return m.vertices.size() - seen.size();
}

TEST(MeshFilter, LevelsSimplifyMoreWhileStayingAsAccurate) {
  const mapura::test::SyntheticScene scene;
  const pv::Mesh scan = mapura::test::makeNoisyScan(150, 0.002f, 7, scene);
  ASSERT_GT(duplicatePositions(scan), 0u) << "the scan repeats chunk-border vertices";
  const double raw_error = meanSurfaceError(scan, scene);
  std::printf("%-8s %10s %10s %8s %16s\n", "level", "triangles", "vertices", "chunks", "mean error (mm)");
  std::printf("%-8s %10zu %10zu %8zu %16.3f\n", "none", scan.triangles.size(), scan.vertices.size(), scan.chunks.size(),
              raw_error * 1000);
  size_t previous = scan.triangles.size();
  for (auto level : {MeshFilterParameters::LOW, MeshFilterParameters::MEDIUM, MeshFilterParameters::HIGH}) {
    SCOPED_TRACE(pv::toString(level).str());
    pv::Mesh m = scan;
    ASSERT_TRUE(m.filter(MeshFilterParameters(level)));
    const double error = meanSurfaceError(m, scene);
    std::printf("%-8s %10zu %10zu %8zu %16.3f\n", pv::toString(level).c_str(), m.triangles.size(), m.vertices.size(),
                m.chunks.size(), error * 1000);
    EXPECT_LE(error, raw_error * 1.10) << "at most 10 % less accurate than unfiltered";
    EXPECT_LT(m.triangles.size(), previous);
    previous = m.triangles.size();
    EXPECT_EQ(duplicatePositions(m), 0u);
    // The fragments floating above the scene are gone.
    for (const pv::float3& v : m.vertices) ASSERT_LT(scene.distance(v), 0.05f);
    // Chunks hold exactly the whole-map triangles, and are flagged for the view.
    EXPECT_EQ(mapura::test::chunkTriangleSet(m), mapura::test::triangleSet(m.vertices, m.triangles));
    for (const pv::Chunk& c : m.chunks) EXPECT_TRUE(c.has_been_updated);
    EXPECT_EQ(m.normals.size(), m.vertices.size());
    EXPECT_EQ(m.colors.size(), m.vertices.size()) << "colours follow their vertices";
    if (level == MeshFilterParameters::LOW) {
      EXPECT_EQ(m.triangles.size(), scan.triangles.size() - 20 - 20) << "20 degenerate and 10 x 2 fragment triangles";
    }
    if (level == MeshFilterParameters::MEDIUM) {
      EXPECT_LT(m.triangles.size(), scan.triangles.size() * 6 / 10);
    }
  }
}

TEST(MeshFilter, WorksFromChunksAndCanLeaveTheWholeMapEmpty) {
  pv::Mesh m = mapura::test::makeNoisyScan(40, 0.002f);
  const size_t before = m.getNumberOfTriangles();
  m.vertices.clear();
  m.triangles.clear();
  m.colors.clear();
  ASSERT_TRUE(m.filter(MeshFilterParameters::MEDIUM, true));
  EXPECT_TRUE(m.triangles.empty() && m.vertices.empty());
  EXPECT_GT(m.getNumberOfTriangles(), 0u);
  EXPECT_LT(m.getNumberOfTriangles(), before);
  pv::Mesh empty;
  EXPECT_FALSE(empty.filter());
  EXPECT_FALSE(pv::lastErrorDetail().str().empty());
}

}  // namespace

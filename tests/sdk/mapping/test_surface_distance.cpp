// Surface distances and the mesh evaluation behind `pavo eval mesh`.
#include <gtest/gtest.h>

#include <random>

#include "mapping/internal/surface_distance.h"

using namespace pv::internal;
using Tris = std::vector<std::array<uint32_t, 3>>;
using Verts = std::vector<Eigen::Vector3f>;

namespace {

/// A w x h square grid in the plane z = `z`, cells of `step`.
void square(float w, float h, float step, float z, Verts& v, Tris& t) {
  v.clear();
  t.clear();
  const int nx = int(w / step), ny = int(h / step);
  for (int y = 0; y <= ny; ++y)
    for (int x = 0; x <= nx; ++x) v.emplace_back(float(x) * step, float(y) * step, z);
  for (int y = 0; y < ny; ++y)
    for (int x = 0; x < nx; ++x) {
      const uint32_t i = uint32_t(y * (nx + 1) + x);
      t.push_back({i, i + 1, i + uint32_t(nx) + 1});
      t.push_back({i + 1, i + uint32_t(nx) + 2, i + uint32_t(nx) + 1});
    }
}

}  // namespace

TEST(SurfaceDistance, ClosestPointMatchesADenseSearchOnRandomTriangles) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> u(-1.f, 1.f);
  for (int n = 0; n < 200; ++n) {
    const Eigen::Vector3f a(u(rng), u(rng), u(rng)), b(u(rng), u(rng), u(rng)), c(u(rng), u(rng), u(rng));
    const Eigen::Vector3f p(2 * u(rng), 2 * u(rng), 2 * u(rng));
    const float exact = (closestPointOnTriangle(p, a, b, c) - p).norm();
    float dense = 1e9f;
    const int steps = 150;
    for (int i = 0; i <= steps; ++i)
      for (int j = 0; i + j <= steps; ++j)
        dense = std::min(dense, (a + (b - a) * (float(i) / steps) + (c - a) * (float(j) / steps) - p).norm());
    EXPECT_LE(exact, dense + 1e-5f);
    EXPECT_NEAR(exact, dense, 0.02f);
  }
  // A big triangle is split for the grid but distances stay exact.
  const Verts v{{0, 0, 0}, {10, 0, 0}, {0, 10, 0}};
  const SurfaceDistance big(v, {{0, 1, 2}}, 0.5f);
  EXPECT_GT(big.triangleCount(), 100u);
  EXPECT_NEAR(big.distance({3.f, 3.f, 0.25f}, 1.f), 0.25f, 1e-5f);
  EXPECT_EQ(big.distance({3.f, 3.f, 5.f}, 1.f), 1.f);  // nothing within the search radius
}

TEST(SurfaceDistance, EvaluationMeasuresOffsetsHolesAndUnseenParts) {
  Verts truth_v, mesh_v;
  Tris truth_t, mesh_t;
  square(2.f, 2.f, 0.5f, 0.f, truth_v, truth_t);  // coarse truth, fine mesh: different tessellations
  square(2.f, 2.f, 0.02f, 0.004f, mesh_v, mesh_t);
  MeshEvaluation e = evaluateMesh(mesh_v, mesh_t, truth_v, truth_t, 0.01f, 0.2f);
  EXPECT_NEAR(e.accuracy_mean_m, 0.004, 1e-4);
  EXPECT_NEAR(e.accuracy_rms_m, 0.004, 1e-4);
  EXPECT_NEAR(e.completeness_pct, 100.0, 1e-9);
  square(2.f, 2.f, 0.02f, 0.015f, mesh_v, mesh_t);
  e = evaluateMesh(mesh_v, mesh_t, truth_v, truth_t, 0.01f, 0.2f);
  EXPECT_NEAR(e.accuracy_mean_m, 0.015, 1e-4);
  EXPECT_EQ(e.truth_seen, e.truth_points);
  EXPECT_LT(e.completeness_pct, 1.0);  // every truth point is 15 mm away

  // The mesh covers the left 1.2 m only: the right part beyond the seen radius is left out, the
  // strip between counts as missing.
  square(1.2f, 2.f, 0.02f, 0.f, mesh_v, mesh_t);
  e = evaluateMesh(mesh_v, mesh_t, truth_v, truth_t, 0.01f, 0.2f);
  EXPECT_NEAR(e.accuracy_mean_m, 0.0, 1e-5);
  const double seen_fraction = double(e.truth_seen) / double(e.truth_points);
  EXPECT_NEAR(seen_fraction, 1.4 / 2.0, 0.03);
  EXPECT_NEAR(e.completeness_pct, 100.0 * 1.21 / 1.4, 2.0);
}

// A point cloud is evaluated as triangles of zero size: distances are to its points.
TEST(SurfaceDistance, PointsAsZeroSizeTrianglesMeasureAPointCloud) {
  Verts truth_v, grid_v, cloud_v;
  Tris truth_t, grid_t, cloud_t;
  square(1.f, 1.f, 0.1f, 0.f, truth_v, truth_t);
  square(1.f, 1.f, 0.005f, 0.003f, grid_v, grid_t);  // dense points 3 mm above the truth
  for (const auto& p : grid_v) {
    cloud_t.push_back({uint32_t(cloud_v.size()), uint32_t(cloud_v.size()), uint32_t(cloud_v.size())});
    cloud_v.push_back(p);
  }
  const MeshEvaluation e = evaluateMesh(cloud_v, cloud_t, truth_v, truth_t, 0.01f, 0.2f);
  EXPECT_NEAR(e.accuracy_mean_m, 0.003, 1e-4);
  EXPECT_GT(e.completeness_pct, 99.0);
  // Sparse points leave most of the truth farther than the threshold from any point.
  Verts sparse_v;
  Tris sparse_t;
  for (size_t i = 0; i < cloud_v.size(); i += 400) {
    sparse_t.push_back({uint32_t(sparse_v.size()), uint32_t(sparse_v.size()), uint32_t(sparse_v.size())});
    sparse_v.push_back(cloud_v[i]);
  }
  const MeshEvaluation s = evaluateMesh(sparse_v, sparse_t, truth_v, truth_t, 0.01f, 0.5f);
  EXPECT_NEAR(s.accuracy_mean_m, 0.003, 1e-4);
  EXPECT_LT(s.completeness_pct, 50.0);
}

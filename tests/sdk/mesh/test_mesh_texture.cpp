// Mesh::applyTexture on a synthetic scan whose keyframes are rendered from a known, procedurally
// coloured scene at known poses: the atlas must give back the scene's true colours.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <opencv2/imgcodecs.hpp>

#include "mesh/internal/texture_source.h"
#include "pv/mesh.h"
#include "scene_renderer.h"
#include "synthetic_scan.h"
#include "test_utils.h"

namespace {

using mapura::test::SyntheticScene;

std::shared_ptr<pv::internal::TextureSource> orbitKeyframes(const SyntheticScene& scene, int count) {
  auto source = std::make_shared<pv::internal::TextureSource>();
  for (int i = 0; i < count; ++i) {
    const float a = 2.f * float(M_PI) * float(i) / float(count);
    const float height = i % 2 ? 1.6f : 0.9f;
    const auto cam = mapura::test::lookAt({2.2f * std::cos(a), height, 2.2f * std::sin(a)}, {0.f, 0.3f, 0.f});
    source->keyframes.push_back(mapura::test::keyframeFrom(scene, cam));
  }
  return source;
}

pv::Mesh scannedScene(const SyntheticScene& scene) {
  pv::Mesh m = mapura::test::makeNoisyScan(60, 0.0005f, 3, scene);
  EXPECT_TRUE(m.filter(pv::MeshFilterParameters::LOW));  // drops the floating fragments
  return m;
}

struct ColourError {
  double coverage = 0;  // share of triangles textured from a keyframe
  double mean = 0;      // mean absolute difference per channel, 0..255, on textured triangles
  double median = 0;
  double within_16 = 0;  // share of samples whose three channels are all within 16 levels
};

// Samples four points inside every triangle, reads the atlas there through the corners' texture
// coordinates and compares with the true colour of the nearest point of the true surface.
ColourError measure(const pv::Mesh& m, const SyntheticScene& scene) {
  std::vector<double> errors;
  size_t textured = 0, within = 0;
  const float w[4][3] = {{1 / 3.f, 1 / 3.f, 1 / 3.f}, {0.6f, 0.2f, 0.2f}, {0.2f, 0.6f, 0.2f}, {0.2f, 0.2f, 0.6f}};
  for (const pv::uint3& t : m.triangles) {
    if (m.uv[t.x] == m.uv[t.y] && m.uv[t.y] == m.uv[t.z]) continue;  // the shared patch of unseen triangles
    ++textured;
    for (const auto& b : w) {
      const pv::float3 p = m.vertices[t.x] * b[0] + m.vertices[t.y] * b[1] + m.vertices[t.z] * b[2];
      const pv::float2 uv = mapura::test::mix(m.uv[t.x], m.uv[t.y], m.uv[t.z], b[0], b[1], b[2]);
      // Nearest true surface point: radially onto the ball, or straight down onto the floor.
      const pv::float3 d = p - scene.ball_centre;
      const float r = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
      const pv::float3 on_surface = std::fabs(r - scene.ball_radius) < std::fabs(p.y)
                                        ? scene.ball_centre + d * (scene.ball_radius / r)
                                        : pv::float3(p.x, 0.f, p.z);
      const cv::Vec3b truth = mapura::test::trueColor(scene, on_surface);
      const cv::Vec3f got = mapura::test::sampleTexture(m.texture, uv);
      double e = 0, worst = 0;
      for (int k = 0; k < 3; ++k) {
        const double diff = std::fabs(double(got[k]) - double(truth[k]));
        e += diff / 3;
        worst = std::max(worst, diff);
      }
      errors.push_back(e);
      within += worst <= 16;
    }
  }
  ColourError r;
  r.coverage = double(textured) / double(std::max<size_t>(1, m.triangles.size()));
  if (errors.empty()) return r;
  for (double e : errors) r.mean += e / double(errors.size());
  std::nth_element(errors.begin(), errors.begin() + long(errors.size() / 2), errors.end());
  r.median = errors[errors.size() / 2];
  r.within_16 = double(within) / double(errors.size());
  return r;
}

TEST(MeshTexture, AtlasReproducesTheTrueColours) {
  const SyntheticScene scene;
  pv::Mesh mesh = scannedScene(scene);
  const size_t triangles = mesh.getNumberOfTriangles();
  mesh.texture_source = orbitKeyframes(scene, 16);
  ASSERT_TRUE(mesh.applyTexture(pv::MESH_TEXTURE_FORMAT::RGB)) << pv::lastErrorDetail().str();
  ASSERT_TRUE(mesh.texture.isInit());
  EXPECT_EQ(mesh.texture.getDataType(), pv::MAT_TYPE::U8_C3);
  EXPECT_EQ(mesh.getNumberOfTriangles(), triangles);
  ASSERT_EQ(mesh.uv.size(), mesh.vertices.size());
  EXPECT_EQ(mapura::test::chunkTriangleSet(mesh), mapura::test::triangleSet(mesh.vertices, mesh.triangles));
  for (const pv::Chunk& c : mesh.chunks) EXPECT_EQ(c.uv.size(), c.vertices.size());

  const ColourError e = measure(mesh, scene);
  std::printf(
      "atlas %zux%zu, %zu triangles: coverage %.1f %%, colour error mean %.2f, median %.2f, "
      "samples within 16 levels %.1f %%\n",
      mesh.texture.getWidth(), mesh.texture.getHeight(), triangles, 100 * e.coverage, e.mean, e.median,
      100 * e.within_16);
  EXPECT_GT(e.coverage, 0.9);
  EXPECT_LT(e.median, 6.0);
  EXPECT_LT(e.mean, 12.0);
  EXPECT_GT(e.within_16, 0.85);

  // The saved OBJ, read back and drawn from a viewpoint no keyframe had, looks like the scene.
  const std::string dir = mapura::test::scratchDir("mesh_texture");
  ASSERT_TRUE(mesh.save((dir + "/scan.obj").c_str(), pv::MESH_FILE_FORMAT::OBJ));
  pv::Mesh loaded;
  ASSERT_TRUE(loaded.load((dir + "/scan.obj").c_str()));
  ASSERT_TRUE(loaded.texture.isInit());
  const auto view = mapura::test::lookAt({1.4f, 1.9f, -1.2f}, {0.f, 0.25f, 0.f}, 640, 480, 520);
  const cv::Mat drawn = mapura::test::renderTexturedMesh(loaded, view);
  const cv::Mat truth = mapura::test::renderScene(scene, view);
  double diff = 0;
  size_t pixels = 0;
  for (int y = 0; y < drawn.rows; ++y)
    for (int x = 0; x < drawn.cols; ++x) {
      const cv::Vec3b a = drawn.at<cv::Vec3b>(y, x), b = truth.at<cv::Vec3b>(y, x);
      if (a == cv::Vec3b() || b == cv::Vec3b()) continue;
      for (int k = 0; k < 3; ++k) diff += std::fabs(double(a[k]) - double(b[k])) / 3;
      ++pixels;
    }
  cv::Mat side_by_side;
  cv::hconcat(drawn, truth, side_by_side);
  cv::imwrite(dir + "/textured_scan_vs_truth.png", side_by_side);
  std::printf("novel view: mean difference %.2f over %zu pixels; picture %s/textured_scan_vs_truth.png\n",
              diff / double(std::max<size_t>(pixels, 1)), pixels, dir.c_str());
  EXPECT_GT(pixels, size_t(drawn.total() / 3));
  EXPECT_LT(diff / double(std::max<size_t>(pixels, 1)), 16.0);
}

TEST(MeshTexture, RgbaAndRefusals) {
  const SyntheticScene scene;
  pv::Mesh mesh = scannedScene(scene);
  // Without keyframes nothing changes.
  const pv::Mesh before = mesh;
  EXPECT_FALSE(mesh.applyTexture());
  EXPECT_FALSE(mesh.hasTextureSource());
  EXPECT_EQ(mesh.vertices.size(), before.vertices.size());
  EXPECT_TRUE(mesh.uv.empty());
  EXPECT_FALSE(mesh.texture.isInit());

  mesh.texture_source = orbitKeyframes(scene, 6);
  mesh.vertices.clear();  // texturing from the chunks alone
  mesh.triangles.clear();
  ASSERT_TRUE(mesh.applyTexture(pv::MESH_TEXTURE_FORMAT::RGBA));
  EXPECT_EQ(mesh.texture.getDataType(), pv::MAT_TYPE::U8_C4);
  EXPECT_EQ(mesh.getNumberOfTriangles(), before.getNumberOfTriangles());
  // Alpha is opaque under every textured corner.
  size_t opaque = 0;
  for (const pv::float2& t : mesh.uv) {
    const size_t x = std::min(size_t(t.x * float(mesh.texture.getWidth())), mesh.texture.getWidth() - 1);
    const size_t y = std::min(size_t(t.y * float(mesh.texture.getHeight())), mesh.texture.getHeight() - 1);
    opaque += mesh.texture.getPixel<unsigned char>(x, y)[3] == 255;
  }
  EXPECT_GT(opaque, mesh.uv.size() * 95 / 100);
}

}  // namespace

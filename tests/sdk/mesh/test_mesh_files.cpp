// Writing and reading maps: round trips, third-party reading, failed writes, corrupt files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <set>

#include "assimp_info.h"
#include "mesh_test_utils.h"
#include "pv/mesh.h"
#include "test_utils.h"

namespace {

namespace fs = std::filesystem;
using pv::MESH_FILE_FORMAT;

using mapura::test::writeFileBytes;

pv::Mesh texturedSphere() {
  pv::Mesh m = mapura::test::makeSphereMesh(0.5f, 12, 24);
  m.texture.alloc(64, 32, pv::MAT_TYPE::U8_C3);
  for (size_t y = 0; y < 32; ++y)
    for (size_t x = 0; x < 64; ++x) {
      unsigned char* px = m.texture.getPixel<unsigned char>(x, y);
      px[0] = static_cast<unsigned char>(x * 4);
      px[1] = static_cast<unsigned char>(y * 8);
      px[2] = static_cast<unsigned char>((x ^ y) * 3);
    }
  return m;
}

void expectSameCorners(const pv::Mesh& a, const pv::Mesh& b, bool with_uv) {
  const auto ca = mapura::test::corners(a), cb = mapura::test::corners(b);
  ASSERT_EQ(ca.size(), cb.size());
  for (size_t i = 0; i < ca.size(); ++i) {
    ASSERT_EQ(ca[i].p, cb[i].p) << "corner " << i;
    ASSERT_EQ(ca[i].n, cb[i].n) << "corner " << i;
    ASSERT_EQ(ca[i].c, cb[i].c) << "corner " << i;
    if (with_uv) {
      ASSERT_NEAR(ca[i].uv.x, cb[i].uv.x, 1e-6f);
      ASSERT_NEAR(ca[i].uv.y, cb[i].uv.y, 1e-6f);
    }
  }
}

TEST(MeshFiles, RoundTripKeepsEveryCornerInAllThreeFormats) {
  const std::string dir = mapura::test::scratchDir("mesh_round_trip");
  const pv::Mesh original = texturedSphere();
  for (MESH_FILE_FORMAT format : {MESH_FILE_FORMAT::PLY, MESH_FILE_FORMAT::PLY_ASCII, MESH_FILE_FORMAT::OBJ}) {
    SCOPED_TRACE(pv::toString(format).str());
    const std::string path = dir + (format == MESH_FILE_FORMAT::OBJ ? "/mesh.obj" : "/mesh.ply");
    ASSERT_TRUE(original.save(path.c_str(), format)) << pv::lastErrorDetail().str();
    pv::Mesh back;
    ASSERT_TRUE(back.load(path.c_str())) << pv::lastErrorDetail().str();
    EXPECT_EQ(back.getNumberOfTriangles(), original.triangles.size());
    expectSameCorners(original, back, true);
    if (format == MESH_FILE_FORMAT::OBJ) {
      // The texture goes beside the OBJ and comes back pixel for pixel, in BGR order.
      EXPECT_TRUE(fs::exists(dir + "/mesh.mtl"));
      EXPECT_TRUE(fs::exists(dir + "/mesh.png"));
      ASSERT_TRUE(back.texture.isInit());
      ASSERT_EQ(back.texture.getWidth(), 64u);
      ASSERT_EQ(back.texture.getChannels(), 3);
      for (size_t y = 0; y < 32; ++y)
        ASSERT_EQ(std::memcmp(back.texture.getPixel<unsigned char>(0, y),
                              original.texture.getPixel<unsigned char>(0, y), 64 * 3),
                  0);
    }
  }
  // Nothing but the results is left in the folder.
  std::set<std::string> names;
  for (const auto& e : fs::directory_iterator(dir)) names.insert(e.path().filename().string());
  EXPECT_EQ(names, (std::set<std::string>{"mesh.mtl", "mesh.obj", "mesh.ply", "mesh.png"}));
}

TEST(MeshFiles, SavesChunksAndPointClouds) {
  const std::string dir = mapura::test::scratchDir("mesh_chunks_save");
  pv::Mesh mesh = mapura::test::makeSphereMesh(1.f, 40, 80);
  mesh.mergeChunks(500);
  ASSERT_GT(mesh.chunks.size(), 4u);
  for (const pv::Chunk& c : mesh.chunks) ASSERT_LE(c.triangles.size(), 500u);
  EXPECT_EQ(mapura::test::chunkTriangleSet(mesh), mapura::test::triangleSet(mesh.vertices, mesh.triangles));
  // Chunks 1 and 3 only.
  ASSERT_TRUE(mesh.save((dir + "/two.ply").c_str(), MESH_FILE_FORMAT::PLY, {1, 3}));
  pv::Mesh two;
  ASSERT_TRUE(two.load((dir + "/two.ply").c_str()));
  EXPECT_EQ(two.getNumberOfTriangles(), mesh.chunks[1].triangles.size() + mesh.chunks[3].triangles.size());
  EXPECT_FALSE(mesh.save((dir + "/bad.ply").c_str(), MESH_FILE_FORMAT::PLY, {int(mesh.chunks.size())}));
  EXPECT_FALSE(fs::exists(dir + "/bad.ply"));
  // Chunks alone (whole-map arrays empty) save the same triangles.
  pv::Mesh chunks_only = mesh;
  chunks_only.vertices.clear();
  chunks_only.triangles.clear();
  ASSERT_TRUE(chunks_only.save((dir + "/chunks.ply").c_str(), MESH_FILE_FORMAT::PLY));
  pv::Mesh back;
  ASSERT_TRUE(back.load((dir + "/chunks.ply").c_str(), true));
  EXPECT_TRUE(back.triangles.empty()) << "update_chunk_only leaves the whole-map arrays empty";
  EXPECT_EQ(back.getNumberOfTriangles(), mesh.triangles.size());
  EXPECT_EQ(mapura::test::chunkTriangleSet(back), mapura::test::triangleSet(mesh.vertices, mesh.triangles));

  // A fused point cloud keeps positions and packed colours through PLY, PLY ASCII and OBJ.
  pv::FusedPointCloud cloud;
  for (size_t i = 0; i < mesh.vertices.size(); ++i) {
    const pv::float3& p = mesh.vertices[i];
    const uint32_t bits = (uint32_t(mesh.colors[i].x) << 16) | (uint32_t(mesh.colors[i].y) << 8) | mesh.colors[i].z;
    float w;
    std::memcpy(&w, &bits, 4);
    cloud.vertices.push_back({p.x, p.y, p.z, w});
  }
  for (MESH_FILE_FORMAT format : {MESH_FILE_FORMAT::PLY, MESH_FILE_FORMAT::PLY_ASCII, MESH_FILE_FORMAT::OBJ}) {
    const std::string path = dir + (format == MESH_FILE_FORMAT::OBJ ? "/cloud.obj" : "/cloud.ply");
    ASSERT_TRUE(cloud.save(path.c_str(), format));
    pv::FusedPointCloud again;
    ASSERT_TRUE(again.load(path.c_str()));
    ASSERT_EQ(again.vertices.size(), cloud.vertices.size());
    for (size_t i = 0; i < cloud.vertices.size(); ++i) {
      ASSERT_EQ(again.vertices[i].x, cloud.vertices[i].x);
      ASSERT_EQ(std::memcmp(&again.vertices[i].w, &cloud.vertices[i].w, 4), 0) << "colour of point " << i;
    }
    pv::Mesh as_mesh;
    EXPECT_FALSE(as_mesh.load(path.c_str())) << "a file without faces is not a mesh";
    EXPECT_EQ(as_mesh.getNumberOfPoints(), 0u);
  }
}

TEST(MeshFiles, ThirdPartyReaderReadsOurFiles) {
  if (!mapura::test::assimpAvailable()) GTEST_SKIP() << "assimp not installed";
  const std::string dir = mapura::test::scratchDir("mesh_assimp");
  const pv::Mesh mesh = texturedSphere();
  for (MESH_FILE_FORMAT format : {MESH_FILE_FORMAT::PLY, MESH_FILE_FORMAT::PLY_ASCII, MESH_FILE_FORMAT::OBJ}) {
    SCOPED_TRACE(pv::toString(format).str());
    const std::string path = dir + (format == MESH_FILE_FORMAT::OBJ ? "/m.obj" : "/m.ply");
    ASSERT_TRUE(mesh.save(path.c_str(), format));
    const auto info = mapura::test::assimpInfo(path, true);
    ASSERT_TRUE(info.loaded);
    EXPECT_EQ(info.faces, mesh.triangles.size());
    EXPECT_EQ(info.types, "triangles");
    if (format != MESH_FILE_FORMAT::OBJ) {
      EXPECT_EQ(info.vertices, mesh.vertices.size());
    }
    const auto processed = mapura::test::assimpInfo(path, false);
    EXPECT_TRUE(processed.loaded) << "assimp validates the file";
  }
  pv::FusedPointCloud cloud;
  for (const pv::float3& p : mesh.vertices) cloud.vertices.push_back({p.x, p.y, p.z, 0.f});
  ASSERT_TRUE(cloud.save((dir + "/c.ply").c_str(), MESH_FILE_FORMAT::PLY));
  const auto info = mapura::test::assimpInfo(dir + "/c.ply", true);
  EXPECT_EQ(info.vertices, cloud.vertices.size());
  EXPECT_EQ(info.types, "points");
}

pv::Mesh loadText(const std::string& dir, const std::string& name, const std::string& text, bool* ok) {
  writeFileBytes(dir + "/" + name, text);
  pv::Mesh m;
  *ok = m.load((dir + "/" + name).c_str());
  return m;
}

TEST(MeshFiles, ReadsPlyVariants) {
  const std::string dir = mapura::test::scratchDir("mesh_ply_variants");
  bool ok = false;
  // Big endian, double positions, ushort colours, an extra property, a quad and a pentagon,
  // a comment between elements, a foreign element before the vertices.
  std::string be =
      "ply\r\nformat binary_big_endian 1.0\r\nelement camera 1\r\nproperty float fov\r\ncomment between\r\n"
      "element vertex 5\r\nproperty double x\r\nproperty double y\r\nproperty double z\r\nproperty ushort red\r\n"
      "property ushort green\r\nproperty ushort blue\r\nproperty float quality\r\n"
      "element face 2\r\nproperty list uchar uint vertex_indices\r\nend_header\r\n";
  const auto put = [&be](const void* p, size_t n) {
    const auto* b = static_cast<const unsigned char*>(p);
    for (size_t i = n; i-- > 0;) be.push_back(char(b[i]));
  };
  const float fov = 1.f;
  put(&fov, 4);
  for (int i = 0; i < 5; ++i) {
    const double xyz[3] = {double(i), double(i * i), -0.5};
    for (double d : xyz) put(&d, 8);
    const uint16_t rgb[3] = {65535, 0, uint16_t(i * 257)};
    for (uint16_t c : rgb) put(&c, 2);
    const float q = 0.5f;
    put(&q, 4);
  }
  const auto face = [&](std::vector<uint32_t> idx) {
    be.push_back(char(idx.size()));
    for (uint32_t v : idx) put(&v, 4);
  };
  face({0, 1, 2, 3});
  face({0, 1, 2, 3, 4});
  pv::Mesh m = loadText(dir, "be.ply", be, &ok);
  ASSERT_TRUE(ok) << pv::lastErrorDetail().str();
  EXPECT_EQ(m.getNumberOfTriangles(), 2u + 3u);
  EXPECT_EQ(m.vertices[4], pv::float3(4, 16, -0.5f));
  EXPECT_EQ(m.colors[3], pv::uchar3(255, 0, 3));

  // The same bytes cut anywhere are refused, never read past.
  for (size_t cut = 0; cut + 1 < be.size(); cut += 7) {
    loadText(dir, "cut.ply", be.substr(0, cut), &ok);
    EXPECT_FALSE(ok) << "cut at " << cut;
  }

  const std::string header =
      "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
      "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
  loadText(dir, "a.ply", header + "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n", &ok);
  EXPECT_TRUE(ok);
  loadText(dir, "a.ply", header + "0 0 0\n1 0 0\n0 1 0\n3 0 1 3\n", &ok);
  EXPECT_FALSE(ok) << "index out of range";
  EXPECT_NE(pv::lastErrorDetail().str().find("out of range"), std::string::npos);
  loadText(dir, "a.ply", header + "0 0 0\n1 0 0\n0 1 0\n3 0 1 -1\n", &ok);
  EXPECT_FALSE(ok) << "negative index";
  loadText(dir, "a.ply", header + "0 0 0\n1 zero 0\n0 1 0\n3 0 1 2\n", &ok);
  EXPECT_FALSE(ok) << "a word where a number belongs";
  loadText(dir, "a.ply", header + "0 0 0\nnan 0 0\n0 1 0\n3 0 1 2\n", &ok);
  EXPECT_FALSE(ok) << "a non-finite position";
  loadText(dir, "a.ply", header + "0 0 0\n1 0 0\n0 1 0\n2 0 1\n", &ok);
  EXPECT_FALSE(ok) << "a two-corner face";
  // A misspelt header line leaves green without red (found by fuzzing): read, not crashed.
  pv::Mesh green = loadText(dir, "a.ply",
                            "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                            "property float z\nproserty float red\nproperty float green\nelement face 1\n"
                            "property list uchar int vertex_indices\nend_header\n0 0 0 1\n1 0 0 1\n0 1 0 1\n3 0 1 2\n",
                            &ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(green.colors.size(), 3u);
  EXPECT_EQ(green.colors[0], pv::uchar3(0, 255, 0));
  // An empty index list in a binary triangle list (found by fuzzing) is refused.
  std::string empty_face =
      "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
      "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n";
  empty_face += std::string(36, '\0') + std::string(1, '\0');
  loadText(dir, "a.ply", empty_face, &ok);
  EXPECT_FALSE(ok);
  EXPECT_NE(pv::lastErrorDetail().str().find("fewer than three"), std::string::npos);
  std::string huge = header;
  huge.replace(huge.find("vertex 3"), 8, "vertex 999999999999");
  loadText(dir, "a.ply", huge + "0 0 0\n", &ok);
  EXPECT_FALSE(ok) << "a count the file cannot hold is refused before allocating";
  loadText(dir, "a.ply", "ply\nformat binary_middle_endian 1.0\nend_header\n", &ok);
  EXPECT_FALSE(ok);
  loadText(dir, "a.ply", "ply\nformat ascii 1.0\nelement vertex 1\nproperty float x\n", &ok);
  EXPECT_FALSE(ok) << "no end_header";
}

TEST(MeshFiles, ReadsObjVariants) {
  const std::string dir = mapura::test::scratchDir("mesh_obj_variants");
  fs::create_directories(dir + "/sub dir");
  // A material library in a sub-folder with a blank in its name, a texture named with
  // backslashes and the wrong letter case, options before it, negative indices, a polygon.
  writeFileBytes(dir + "/sub dir/m.mtl", "newmtl skin\nKd 1 1 1\nmap_Kd -s 1 1 1 -clamp on ..\\TEX.PNG\n");
  const pv::Mesh textured = texturedSphere();
  ASSERT_TRUE(textured.save((dir + "/seed.obj").c_str(), MESH_FILE_FORMAT::OBJ));
  fs::rename(dir + "/seed.png", dir + "/tex.png");
  const std::string obj =
      "# comment\nmtllib sub dir/m.mtl\nv 0 0 0\nv 1 0 0 1 0 0\nv 1 1 0\nv 0 1 0\nv 0.5 1.5 0\n"
      "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvn 0 0 1\nusemtl skin\n"
      "f -5/-4/-1 -4/-3/-1 -3/-2/-1 -2/-1/-1 \\\n -1/-1/-1\nl 1 2\np 3\n";
  bool ok = false;
  pv::Mesh m = loadText(dir, "odd.obj", obj, &ok);
  ASSERT_TRUE(ok) << pv::lastErrorDetail().str();
  EXPECT_EQ(m.getNumberOfTriangles(), 3u);
  EXPECT_TRUE(m.texture.isInit()) << "texture found through the odd path";
  ASSERT_EQ(m.uv.size(), m.vertices.size());
  EXPECT_EQ(m.colors.size(), m.vertices.size());
  // uv (1, 1) in the file is the top right corner: first row of the image.
  bool found_top_right = false;
  for (size_t i = 0; i < m.uv.size(); ++i)
    found_top_right |= m.uv[i] == pv::float2(1.f, 0.f) && m.vertices[i] == pv::float3(1, 1, 0);
  EXPECT_TRUE(found_top_right);

  // A concave "U": clipped in its plane the triangles cover exactly its area (5); a fan from
  // the first corner would cover 7.
  pv::Mesh u = loadText(dir, "u.obj",
                        "v 0 0 0\nv 0 0 3\nv 0 2 3\nv 0 2 2\nv 0 1 2\nv 0 1 1\nv 0 2 1\nv 0 2 0\n"
                        "f 1 2 3 4 5 6 7 8\n",
                        &ok);
  ASSERT_TRUE(ok);
  ASSERT_EQ(u.getNumberOfTriangles(), 6u);
  double area = 0;
  for (const pv::uint3& t : u.triangles) {
    const pv::float3 a = u.vertices[t.y] - u.vertices[t.x], b = u.vertices[t.z] - u.vertices[t.x];
    area += 0.5 * std::fabs(double(a.y) * b.z - double(a.z) * b.y);
  }
  EXPECT_NEAR(area, 5.0, 1e-6);

  loadText(dir, "bad.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 4\n", &ok);
  EXPECT_FALSE(ok) << "position index out of range";
  loadText(dir, "bad.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 0\n", &ok);
  EXPECT_FALSE(ok) << "index zero";
  loadText(dir, "bad.obj", "v 0 0 0\nv 1 0\nv 0 1 0\nf 1 2 3\n", &ok);
  EXPECT_FALSE(ok) << "two coordinates";
  loadText(dir, "bad.obj", "v 0 0 0\nv x 0 0\nv 0 1 0\nf 1 2 3\n", &ok);
  EXPECT_FALSE(ok) << "a word for a coordinate";
  loadText(dir, "bad.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3/9/9\n", &ok);
  EXPECT_TRUE(ok) << "a texture or normal index pointing nowhere only drops that attribute";
  loadText(dir, "missing.obj", "mtllib nowhere.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl x\nf 1 2 3\n", &ok);
  EXPECT_TRUE(ok) << "a missing material library is tolerated";
  pv::Mesh none;
  EXPECT_FALSE(none.load((dir + "/does_not_exist.obj").c_str()));
  EXPECT_FALSE(none.load((dir + "/sub dir").c_str())) << "a folder";
  writeFileBytes(dir + "/mesh.txt", "hello");
  EXPECT_FALSE(none.load((dir + "/mesh.txt").c_str()));
}

}  // namespace

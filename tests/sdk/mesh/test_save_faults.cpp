// Every file the SDK writes, under faults: a disk that fills at any byte (the process's file size
// limit, under which a write fails as it does on a full disk), a name taken by a folder, a
// missing folder. A write either puts the whole new file (or set of files) in place or leaves
// the folder exactly as it was: earlier files byte for byte, no temporary file behind.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <opencv2/imgproc.hpp>
#include <thread>

#include "io/internal/area_file.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_side_files.h"
#include "mesh_test_utils.h"
#include "pv/mat.h"
#include "pv/mesh.h"
#include "test_utils.h"
#include "tracking/internal/trajectory_eval.h"

namespace {

namespace fs = std::filesystem;
using pv::MESH_FILE_FORMAT;

/// Everything in a folder: each file's bytes, each sub-folder marked as such.
std::map<std::string, std::string> snapshot(const std::string& dir) {
  std::map<std::string, std::string> out;
  for (const auto& e : fs::recursive_directory_iterator(dir)) {
    const std::string name = e.path().lexically_relative(dir).string();
    if (e.is_symlink())
      out[name] = "<link to " + fs::read_symlink(e.path()).string() + ">";
    else if (e.is_directory())
      out[name] = "<folder>";
    else
      out[name] = e.is_regular_file() ? mapura::test::readFileBytes(e.path().string()) : std::string("<special>");
  }
  return out;
}

std::string describe(const std::map<std::string, std::string>& files) {
  std::string s;
  for (const auto& [name, bytes] : files) s += name + " (" + std::to_string(bytes.size()) + " bytes) ";
  return s;
}

/// Runs `write` with every file this process writes limited to `limit` bytes. SIGXFSZ is
/// ignored meanwhile, so a write past the limit fails with EFBIG as one on a full disk fails
/// with ENOSPC.
bool withFileSizeLimit(rlim_t limit, const std::function<bool()>& write) {
  struct rlimit old_limit;
  getrlimit(RLIMIT_FSIZE, &old_limit);
  struct rlimit limited = old_limit;
  limited.rlim_cur = std::min(limit, old_limit.rlim_max);
  auto* old_handler = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &limited);
  const bool ok = write();
  setrlimit(RLIMIT_FSIZE, &old_limit);
  signal(SIGXFSZ, old_handler);
  return ok;
}

/// Limits around each size (one byte short of it and exactly it), and none at all.
std::vector<rlim_t> limitsAround(const std::map<std::string, std::string>& files) {
  std::vector<rlim_t> limits = {0, 1};
  for (const auto& [name, bytes] : files) {
    (void)name;
    if (bytes.size() > 1) limits.push_back(bytes.size() - 1);
    limits.push_back(bytes.size());
    limits.push_back(bytes.size() / 2);
  }
  std::sort(limits.begin(), limits.end());
  limits.erase(std::unique(limits.begin(), limits.end()), limits.end());
  return limits;
}

/// What a sweep of file size limits found.
struct Sweep {
  int failed_writes = 0;
  std::string free_dir;  ///< where the same write ran without a limit
};

/// Writes with `write` into a folder holding the earlier files (made by `write_earlier`) under
/// each file size limit around the sizes of what a free write produces; after each try the folder
/// holds either the earlier files untouched or the new ones complete, nothing else. New files are
/// compared with the free write's byte for byte, or with `same_as_free` when given (for files
/// that carry random identifiers).
Sweep sweepFileSizeLimits(const std::string& name, const std::function<void(const std::string&)>& write_earlier,
                          const std::function<bool(const std::string&)>& write,
                          const std::function<bool(const std::string&)>& same_as_free = nullptr) {
  Sweep sweep;
  sweep.free_dir = mapura::test::scratchDir(name + "_free");
  write_earlier(sweep.free_dir);
  const auto earlier = snapshot(sweep.free_dir);
  EXPECT_TRUE(write(sweep.free_dir)) << pv::lastErrorDetail().str();
  const auto replaced = snapshot(sweep.free_dir);
  EXPECT_TRUE(replaced != earlier) << "the new files must differ from the earlier ones";

  for (rlim_t limit : limitsAround(replaced)) {
    SCOPED_TRACE("file size limit " + std::to_string(limit));
    const std::string dir = mapura::test::scratchDir(name + "_limited");
    write_earlier(dir);
    const auto before = snapshot(dir);
    const bool ok = withFileSizeLimit(limit, [&] { return write(dir); });
    const auto after = snapshot(dir);
    if (ok) {
      bool same = true;
      for (const auto& [file, bytes] : replaced)
        same = same && after.count(file) && after.at(file).size() == bytes.size();
      same = same && after.size() == replaced.size() && (same_as_free ? same_as_free(dir) : after == replaced);
      EXPECT_TRUE(same) << "a write that succeeded left " << describe(after) << "instead of " << describe(replaced);
    } else {
      ++sweep.failed_writes;
      EXPECT_TRUE(after == before) << "a failed write left " << describe(after) << "instead of " << describe(before);
    }
  }
  return sweep;
}

pv::Mesh texturedSphere(float radius, int rings, int segments, int texture_size, int seed) {
  pv::Mesh m = mapura::test::makeSphereMesh(radius, rings, segments);
  m.uv.resize(m.vertices.size());
  for (size_t i = 0; i < m.uv.size(); ++i) m.uv[i] = {float(i % 7) / 7.f, float(i % 5) / 5.f};
  m.texture.alloc(texture_size, texture_size, pv::MAT_TYPE::U8_C3);
  cv::Mat texture(texture_size, texture_size, CV_8UC3, m.texture.getPtr<unsigned char>(), m.texture.getStepBytes());
  cv::randu(texture, cv::Scalar::all(0), cv::Scalar::all(255));
  cv::circle(texture, {texture_size / 2, texture_size / 2}, texture_size / 3, cv::Scalar(seed, 255 - seed, 90), -1);
  return m;
}

}  // namespace

// A textured OBJ is three files; a new set replaces the earlier one whole or not at all, whichever
// file the disk fills on.
TEST(SaveFaults, ObjWithItsMaterialAndTextureReplacesTheEarlierSetWholeOrNotAtAll) {
  const pv::Mesh earlier = texturedSphere(1.f, 6, 10, 32, 10);
  const pv::Mesh next = texturedSphere(0.5f, 20, 40, 48, 200);  // a texture smaller than the OBJ text
  const Sweep sweep = sweepFileSizeLimits(
      "obj_set",
      [&](const std::string& dir) { ASSERT_TRUE(earlier.save((dir + "/mesh.obj").c_str(), MESH_FILE_FORMAT::OBJ)); },
      [&](const std::string& dir) { return next.save((dir + "/mesh.obj").c_str(), MESH_FILE_FORMAT::OBJ); });
  EXPECT_GE(sweep.failed_writes, 3);
  // What was saved reads back as the new mesh, texture included.
  pv::Mesh loaded;
  ASSERT_TRUE(loaded.load((sweep.free_dir + "/mesh.obj").c_str())) << pv::lastErrorDetail().str();
  EXPECT_EQ(loaded.getNumberOfTriangles(), next.getNumberOfTriangles());
  EXPECT_EQ(loaded.texture.getWidth(), 48u);
}

TEST(SaveFaults, PlyMeshesAndPointCloudsAreReplacedWholeOrNotAtAll) {
  const pv::Mesh earlier = mapura::test::makeSphereMesh(1.f, 4, 8);
  const pv::Mesh next = mapura::test::makeSphereMesh(0.5f, 16, 32);
  for (MESH_FILE_FORMAT format : {MESH_FILE_FORMAT::PLY, MESH_FILE_FORMAT::PLY_ASCII}) {
    SCOPED_TRACE(pv::toString(format).str());
    EXPECT_GE(
        sweepFileSizeLimits(
            "ply", [&](const std::string& dir) { ASSERT_TRUE(earlier.save((dir + "/mesh.ply").c_str(), format)); },
            [&](const std::string& dir) { return next.save((dir + "/mesh.ply").c_str(), format); })
            .failed_writes,
        3);
  }
  pv::FusedPointCloud earlier_cloud, next_cloud;
  earlier_cloud.vertices = {{0, 0, 0, 0}, {1, 0, 0, 0}};
  for (int i = 0; i < 500; ++i) next_cloud.vertices.push_back({float(i), float(i % 7), float(i % 3), 0});
  EXPECT_GE(sweepFileSizeLimits(
                "cloud",
                [&](const std::string& dir) {
                  ASSERT_TRUE(earlier_cloud.save((dir + "/fused_point_cloud.ply").c_str(), MESH_FILE_FORMAT::PLY));
                },
                [&](const std::string& dir) {
                  return next_cloud.save((dir + "/fused_point_cloud.ply").c_str(), MESH_FILE_FORMAT::PLY);
                })
                .failed_writes,
            3);
}

// When the material library cannot be put in place (a folder took its name), the texture that
// was already renamed over the earlier one is put back.
TEST(SaveFaults, AFailedRenameInsideASetPutsTheEarlierFilesBack) {
  const pv::Mesh earlier = texturedSphere(1.f, 6, 10, 32, 10);
  const pv::Mesh next = texturedSphere(0.5f, 8, 16, 32, 200);
  for (const char* blocked : {"mesh.mtl", "mesh.obj"}) {
    SCOPED_TRACE(blocked);
    const std::string dir = mapura::test::scratchDir("obj_blocked");
    ASSERT_TRUE(earlier.save((dir + "/mesh.obj").c_str(), MESH_FILE_FORMAT::OBJ));
    fs::remove(dir + "/" + blocked);
    fs::create_directory(dir + "/" + blocked);
    std::ofstream(dir + "/" + blocked + "/inside.txt") << "kept";
    const auto before = snapshot(dir);
    EXPECT_FALSE(next.save((dir + "/mesh.obj").c_str(), MESH_FILE_FORMAT::OBJ));
    EXPECT_NE(pv::lastErrorDetail().str().find("cannot rename"), std::string::npos) << pv::lastErrorDetail().str();
    EXPECT_EQ(snapshot(dir), before) << describe(snapshot(dir));
  }
  // A missing folder, a folder that is a file: refused, nothing created.
  const std::string dir = mapura::test::scratchDir("obj_no_folder");
  std::ofstream(dir + "/file") << "a file where a folder should be";
  const auto before = snapshot(dir);
  EXPECT_FALSE(next.save((dir + "/no/such/folder/m.ply").c_str(), MESH_FILE_FORMAT::PLY));
  EXPECT_FALSE(next.save((dir + "/file/m.obj").c_str(), MESH_FILE_FORMAT::OBJ));
  EXPECT_NE(pv::lastErrorDetail().str().find("cannot create"), std::string::npos) << pv::lastErrorDetail().str();
  EXPECT_EQ(snapshot(dir), before);
}

// A link is saved through (it keeps naming the file, which gets the new map); a pipe or a device
// is written in place, never replaced by a file of the same name.
TEST(SaveFaults, LinksAreFollowedAndPipesWrittenInPlace) {
  const std::string dir = mapura::test::scratchDir("save_links");
  const pv::Mesh mesh = texturedSphere(0.5f, 8, 16, 32, 20);
  fs::create_directory(dir + "/real");
  std::ofstream(dir + "/real/m.ply") << "old";
  fs::create_symlink("real/m.ply", dir + "/link.ply");
  ASSERT_TRUE(mesh.save((dir + "/link.ply").c_str(), MESH_FILE_FORMAT::PLY)) << pv::lastErrorDetail().str();
  EXPECT_TRUE(fs::is_symlink(dir + "/link.ply"));
  pv::Mesh loaded;
  EXPECT_TRUE(loaded.load((dir + "/real/m.ply").c_str()));
  EXPECT_EQ(loaded.getNumberOfTriangles(), mesh.getNumberOfTriangles());

  const std::string pipe = dir + "/pipe.ply";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::string received;
  std::thread reader([&] { received = mapura::test::readFileBytes(pipe); });
  EXPECT_TRUE(mesh.save(pipe.c_str(), MESH_FILE_FORMAT::PLY)) << pv::lastErrorDetail().str();
  reader.join();
  EXPECT_EQ(received.compare(0, 4, "ply\n"), 0);
  EXPECT_TRUE(fs::is_fifo(pipe));
  EXPECT_EQ(snapshot(dir).size(), 4u) << describe(snapshot(dir));
}

TEST(SaveFaults, AreaFilesTrajectoriesAndPicturesAreReplacedWholeOrNotAtAll) {
  pv::internal::MapData earlier_map, next_map;
  for (int k = 0; k < 30; ++k) {
    pv::internal::Keyframe kf;
    kf.id = k;
    kf.T_world_camera.translation() = Eigen::Vector3d(k, 0, 0);
    for (int o = 0; o < 20; ++o) kf.observations.push_back({o, float(o), float(k), float(o) - 3});
    kf.descriptors = cv::Mat(20, 32, CV_8U, cv::Scalar(k));
    (k < 3 ? earlier_map : next_map).keyframes[k] = kf;
  }
  pv::internal::RectifiedCalibration calibration;
  calibration.fx = calibration.fy = 500;
  EXPECT_GE(
      sweepFileSizeLimits(
          "area",
          [&](const std::string& dir) {
            ASSERT_EQ(pv::internal::writeAreaFile(dir + "/Foo.ogt", earlier_map, calibration), pv::ERROR_CODE::SUCCESS);
          },
          [&](const std::string& dir) {
            return pv::internal::writeAreaFile(dir + "/Foo.ogt", next_map, calibration) == pv::ERROR_CODE::SUCCESS;
          })
          .failed_writes,
      3);

  pv::internal::Trajectory earlier_path(2), next_path(300);
  for (size_t i = 0; i < next_path.size(); ++i) next_path[i].t_s = double(i) / 30;
  EXPECT_GE(sweepFileSizeLimits(
                "trajectory",
                [&](const std::string& dir) {
                  std::string error;
                  ASSERT_TRUE(pv::internal::writeTumTrajectory(dir + "/t.txt", earlier_path, error)) << error;
                },
                [&](const std::string& dir) {
                  std::string error;
                  return pv::internal::writeTumTrajectory(dir + "/t.txt", next_path, error);
                })
                .failed_writes,
            3);

  // The ground truth beside a synthesized or imported recording.
  const std::vector<Eigen::Vector3f> vertices(400, Eigen::Vector3f(1, 2, 3));
  const std::vector<Eigen::Vector3i> triangles(300, Eigen::Vector3i(0, 1, 2));
  EXPECT_GE(
      sweepFileSizeLimits(
          "gt_surface",
          [&](const std::string& dir) { ASSERT_TRUE(pv::internal::writeSurfacePly(dir + "/r.gt.ply", {}, {})); },
          [&](const std::string& dir) { return pv::internal::writeSurfacePly(dir + "/r.gt.ply", vertices, triangles); })
          .failed_writes,
      3);
  EXPECT_GE(sweepFileSizeLimits(
                "gt_trajectory",
                [&](const std::string& dir) {
                  ASSERT_TRUE(pv::internal::writeTumTrajectory(dir + "/r.gt.txt", {1}, {Eigen::Matrix4d::Identity()}));
                },
                [&](const std::string& dir) {
                  return pv::internal::writeTumTrajectory(
                      dir + "/r.gt.txt", std::vector<int64_t>(200, 5),
                      std::vector<Eigen::Matrix4d>(200, Eigen::Matrix4d::Identity()));
                })
                .failed_writes,
            3);

  pv::Mat earlier_picture, next_picture;
  earlier_picture.alloc(8, 8, pv::MAT_TYPE::U8_C4);
  next_picture.alloc(64, 64, pv::MAT_TYPE::U8_C4);
  cv::Mat pixels(64, 64, CV_8UC4, next_picture.getPtr<unsigned char>(), next_picture.getStepBytes());
  cv::randu(pixels, cv::Scalar::all(0), cv::Scalar::all(255));
  EXPECT_GE(sweepFileSizeLimits(
                "picture",
                [&](const std::string& dir) {
                  ASSERT_EQ(earlier_picture.write((dir + "/p.png").c_str()), pv::ERROR_CODE::SUCCESS);
                },
                [&](const std::string& dir) {
                  return next_picture.write((dir + "/p.png").c_str()) == pv::ERROR_CODE::SUCCESS;
                })
                .failed_writes,
            3);
}

// A recording that replaces an earlier one is written beside it and renamed over it once
// complete: a disk that fills during the recording leaves the earlier recording as it was. A new
// recording cut off the same way keeps the frames it had.
TEST(SaveFaults, ARecordingReplacesAnEarlierOneOnlyWhenComplete) {
  pv::internal::KtrMetadata metadata;
  metadata.width = 64;
  metadata.height = 48;
  metadata.fps = 25;
  metadata.calibration.width = 64;
  metadata.calibration.height = 48;
  metadata.calibration.left = metadata.calibration.right = {50, 50, 32, 24, {}};
  metadata.calibration.T = {-0.12, 0, 0};
  auto record = [&](const std::string& path, int frames) {
    pv::internal::KtrWriter writer;
    if (writer.open(path, metadata, pv::KTR_COMPRESSION_MODE::LOSSLESS) != pv::ERROR_CODE::SUCCESS) return false;
    bool ok = true;
    cv::Mat frame(48, 128, CV_8UC3);
    for (int i = 0; i < frames && ok; ++i) {
      cv::RNG(uint64_t(frames * 1000 + i)).fill(frame, cv::RNG::UNIFORM, 0, 255);
      ok = writer.write(frame, int64_t(i) * 40000000) == pv::ERROR_CODE::SUCCESS;
    }
    return writer.close() == pv::ERROR_CODE::SUCCESS && ok;
  };
  EXPECT_GE(sweepFileSizeLimits(
                "recording", [&](const std::string& dir) { ASSERT_TRUE(record(dir + "/r.ktr", 3)); },
                [&](const std::string& dir) { return record(dir + "/r.ktr", 30); },
                [&](const std::string& dir) {  // a recording carries random identifiers
                  pv::internal::KtrReader reader;
                  return reader.open(dir + "/r.ktr") == pv::ERROR_CODE::SUCCESS && reader.frameCount() == 30;
                })
                .failed_writes,
            3);

  const std::string dir = mapura::test::scratchDir("recording_new");
  ASSERT_FALSE(withFileSizeLimit(200000, [&] { return record(dir + "/new.ktr", 30); }));
  pv::internal::KtrReader reader;
  ASSERT_EQ(reader.open(dir + "/new.ktr"), pv::ERROR_CODE::SUCCESS) << pv::lastErrorDetail().str();
  EXPECT_GT(reader.frameCount(), 0);
  EXPECT_LT(reader.frameCount(), 30);
  EXPECT_EQ(snapshot(dir).size(), 1u) << "nothing but the recording: " << describe(snapshot(dir));
}

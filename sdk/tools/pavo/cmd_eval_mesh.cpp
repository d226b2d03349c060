// pavo eval mesh: accuracy and completeness of a reconstructed mesh against the true surface.
#include <cstdio>
#include <functional>
#include <iostream>

#include "command.h"
#include "core/internal/coordinates.h"
#include "ground_truth.h"
#include "mapping/internal/surface_distance.h"
#include "pv/camera.h"
#include "pv/mesh.h"

namespace {

const char* const kName = "eval mesh";

bool readMesh(const std::string& path, std::vector<Eigen::Vector3f>& v, std::vector<std::array<uint32_t, 3>>& t,
              std::string& why) {
  pv::Mesh mesh;
  if (!mesh.load(pv::String(path.c_str()))) {
    why = std::string("cannot read ") + path + ": " + pv::lastErrorDetail().c_str();
    return false;
  }
  if (mesh.vertices.empty()) mesh.updateMeshFromChunkList();
  for (const auto& p : mesh.vertices) v.emplace_back(p.x, p.y, p.z);
  for (const auto& f : mesh.triangles) t.push_back({f.x, f.y, f.z});
  return true;
}

// The map to evaluate: a mesh, or a point cloud whose points stand as triangles of zero size, so
// that distances to it are distances to its points.
bool readMap(const std::string& path, std::vector<Eigen::Vector3f>& v, std::vector<std::array<uint32_t, 3>>& t,
             std::string& why) {
  if (readMesh(path, v, t, why)) return true;
  pv::FusedPointCloud cloud;
  if (!cloud.load(pv::String(path.c_str()))) return false;
  if (cloud.vertices.empty()) cloud.updateFromChunkList();
  for (const auto& p : cloud.vertices) {
    t.push_back({uint32_t(v.size()), uint32_t(v.size()), uint32_t(v.size())});
    v.emplace_back(p.x, p.y, p.z);
  }
  if (v.empty()) why = path + " holds no points";
  return !v.empty();
}

// "Seen" from the recording's true depth: a truth sample counts when some frame shows it within
// the mapping range and unhidden (the maps and the truth are in the recording's right-handed y-up
// world; the frames in IMAGE axes).
bool trueVisibility(const std::string& ktr, std::vector<pv::internal::DepthFrame>& frames, std::string& why) {
  pv::Camera camera;
  pv::InitParameters init;
  init.input.setFromKTRFile(ktr.c_str());
  init.depth_mode = pv::DEPTH_MODE::NONE;
  if (camera.open(init) != pv::ERROR_CODE::SUCCESS) {
    why = "cannot open " + ktr + ": " + pv::lastErrorDetail().c_str();
    return false;
  }
  const pv::CameraParameters c = camera.getCameraInformation().camera_configuration.calibration_parameters.left_cam;
  camera.close();
  pavo::GroundTruth truth;
  const std::string stem = pavo::recordingStem(ktr);
  if (!truth.read(stem + ".gt.txt")) {
    why = "cannot read " + stem + ".gt.txt";
    return false;
  }
  constexpr int kStride = 5;  // every fifth frame: neighbours see nearly the same
  return pavo::readTrueDepthFrames(stem, truth, c.fx, c.fy, c.cx, c.cy, kStride, frames, why);
}

int runEvalMesh(int argc, char** argv) {
  const pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  if (args.positional().size() != 2) return pavo::usageError(kName, "expects MESH and GT.ply");
  const auto unknown = args.unknown({"threshold", "seen-radius", "recording", "range"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  bool ok_t = true, ok_r = true;
  const double threshold = args.getNumber("threshold", 0.02, &ok_t);
  const double seen_radius = args.getNumber("seen-radius", 0.25, &ok_r);
  if (!ok_t || !(threshold > 0.0) || threshold > 1.0)
    return pavo::usageError(kName, "--threshold takes metres in (0, 1]");
  if (!ok_r || !(seen_radius > threshold))
    return pavo::usageError(kName, "--seen-radius takes metres above the threshold");
  bool ok_range = true;
  const double range = args.getNumber("range", 100.0, &ok_range);
  if (!ok_range || !(range > 0.0)) return pavo::usageError(kName, "--range takes metres above 0");
  if (args.has("range") && !args.has("recording")) return pavo::usageError(kName, "--range goes with --recording");

  std::vector<Eigen::Vector3f> mv, gv;
  std::vector<std::array<uint32_t, 3>> mt, gt;
  std::string why;
  if (!readMap(args.positional()[0], mv, mt, why)) return pavo::failure(kName, why);
  if (!readMesh(args.positional()[1], gv, gt, why)) return pavo::failure(kName, why);
  if (gt.empty()) return pavo::failure(kName, args.positional()[1] + " holds no triangles");
  std::vector<pv::internal::DepthFrame> frames;
  std::function<bool(const Eigen::Vector3f&)> seen;
  std::string seen_how = "within " + std::to_string(seen_radius).substr(0, 4) + " m of the map";
  if (args.has("recording")) {
    if (!trueVisibility(args.get("recording"), frames, why)) return pavo::failure(kName, why);
    // Captured by value: the lambda runs after this block has ended.
    const Eigen::Matrix3f to_image = pv::internal::basisFromImage(pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP).transpose();
    seen = [&frames, to_image, range](const Eigen::Vector3f& p) {
      return pv::internal::visibleInAny(frames, to_image * p, 1, 0.02f, float(range));
    };
    seen_how = "shown by the true depth of " + std::to_string(frames.size()) + " frames within " +
               std::to_string(range).substr(0, 4) + " m";
  }
  const pv::internal::MeshEvaluation e =
      pv::internal::evaluateMesh(mv, mt, gv, gt, float(threshold), float(seen_radius), seen);
  std::printf("accuracy_mean_m %.5f\naccuracy_rms_m %.5f\ncompleteness_pct %.2f\n", e.accuracy_mean_m, e.accuracy_rms_m,
              e.completeness_pct);
  std::printf("# %zu map points; %zu of %zu truth samples seen (%s); threshold %.3f m\n", e.mesh_points, e.truth_seen,
              e.truth_points, seen_how.c_str(), threshold);
  return 0;
}

}  // namespace

PAVO_COMMAND("eval mesh", "MAP GT.ply [--threshold M (0.02)] [--seen-radius M (0.25)] [--recording F.ktr [--range M]]",
             "accuracy (map to truth) and completeness (truth within the threshold, over the truth the camera saw: "
             "near the map, or with --recording shown by its true depth within the range) of a mesh or a fused point "
             "cloud",
             runEvalMesh);

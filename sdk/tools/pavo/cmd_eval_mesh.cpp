// pavo eval mesh: accuracy and completeness of a reconstructed mesh against the true surface.
#include <cstdio>
#include <iostream>

#include "command.h"
#include "mapping/internal/surface_distance.h"
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
  if (t.empty()) {
    why = path + " holds no triangles";
    return false;
  }
  return true;
}

int runEvalMesh(int argc, char** argv) {
  const pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  if (args.positional().size() != 2) return pavo::usageError(kName, "expects MESH and GT.ply");
  const auto unknown = args.unknown({"threshold", "seen-radius"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  bool ok_t = true, ok_r = true;
  const double threshold = args.getNumber("threshold", 0.02, &ok_t);
  const double seen_radius = args.getNumber("seen-radius", 0.25, &ok_r);
  if (!ok_t || !(threshold > 0.0) || threshold > 1.0)
    return pavo::usageError(kName, "--threshold takes metres in (0, 1]");
  if (!ok_r || !(seen_radius > threshold))
    return pavo::usageError(kName, "--seen-radius takes metres above the threshold");

  std::vector<Eigen::Vector3f> mv, gv;
  std::vector<std::array<uint32_t, 3>> mt, gt;
  std::string why;
  if (!readMesh(args.positional()[0], mv, mt, why) || !readMesh(args.positional()[1], gv, gt, why))
    return pavo::failure(kName, why);
  const pv::internal::MeshEvaluation e =
      pv::internal::evaluateMesh(mv, mt, gv, gt, float(threshold), float(seen_radius));
  std::printf("accuracy_mean_m %.5f\naccuracy_rms_m %.5f\ncompleteness_pct %.2f\n", e.accuracy_mean_m, e.accuracy_rms_m,
              e.completeness_pct);
  std::printf("# %zu mesh vertices; %zu of %zu truth samples seen (within %.2f m of the mesh); threshold %.3f m\n",
              e.mesh_points, e.truth_seen, e.truth_points, seen_radius, threshold);
  return 0;
}

}  // namespace

PAVO_COMMAND("eval mesh", "MESH GT.ply [--threshold M (0.02)] [--seen-radius M (0.25)]",
             "mesh accuracy (mesh to truth) and completeness (truth within the threshold, over the truth near the "
             "mesh)",
             runEvalMesh);

#include "io/internal/ktr_side_files.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "mesh/internal/file_util.h"

namespace pv::internal {

std::string sideFileStem(const std::string& path) {
  const std::string ext = ".ktr";
  if (path.size() > ext.size() && path.compare(path.size() - ext.size(), ext.size(), ext) == 0)
    return path.substr(0, path.size() - ext.size());
  return path;
}

bool writeTumTrajectory(const std::string& path, const std::vector<int64_t>& timestamps_ns,
                        const std::vector<Eigen::Matrix4d>& poses) {
  return writeFileAtomically(
             path,
             [&](const std::string& temporary) {
               OutputFile out(temporary);
               out.text("# timestamp tx ty tz qx qy qz qw (camera to world, metres, right-handed y-up)\n");
               char line[256];
               for (size_t i = 0; i < poses.size() && i < timestamps_ns.size(); ++i) {
                 const Eigen::Quaterniond q(Eigen::Matrix3d(poses[i].topLeftCorner<3, 3>()));
                 const Eigen::Vector3d t = poses[i].topRightCorner<3, 1>();
                 const int n = std::snprintf(line, sizeof(line), "%lld.%09lld %.6f %.6f %.6f %.9f %.9f %.9f %.9f\n",
                                             static_cast<long long>(timestamps_ns[i] / 1000000000LL),
                                             static_cast<long long>(timestamps_ns[i] % 1000000000LL), t.x(), t.y(),
                                             t.z(), q.x(), q.y(), q.z(), q.w());
                 out.write(line, size_t(std::clamp(n, 0, int(sizeof(line)) - 1)));
               }
               return out.close();
             })
      .ok;
}

bool writeSurfacePly(const std::string& path, const std::vector<Eigen::Vector3f>& vertices,
                     const std::vector<Eigen::Vector3i>& triangles) {
  return writeFileAtomically(
             path,
             [&](const std::string& temporary) {
               OutputFile out(temporary);
               out.text("ply\nformat binary_little_endian 1.0\ncomment ground-truth surface\nelement vertex " +
                        std::to_string(vertices.size()) +
                        "\nproperty float x\nproperty float y\nproperty float z\nelement face " +
                        std::to_string(triangles.size()) + "\nproperty list uchar int vertex_indices\nend_header\n");
               for (const Eigen::Vector3f& v : vertices) out.write(v.data(), 3 * sizeof(float));
               for (const Eigen::Vector3i& f : triangles) {
                 out.put(char(3));
                 out.write(f.data(), 3 * sizeof(int));
               }
               return out.close();
             })
      .ok;
}

bool readTumTrajectory(const std::string& path, std::vector<double>& timestamps_s,
                       std::vector<Eigen::Matrix4d>& poses) {
  std::ifstream in(path);
  if (!in) return false;
  timestamps_s.clear();
  poses.clear();
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    double t, x, y, z, qx, qy, qz, qw;
    if (!(fields >> t >> x >> y >> z >> qx >> qy >> qz >> qw)) return false;
    const Eigen::Quaterniond q(qw, qx, qy, qz);
    if (!(std::abs(q.norm() - 1) < 1e-3)) return false;
    Eigen::Matrix4d T = Eigen::Matrix4d::Identity();
    T.topLeftCorner<3, 3>() = q.normalized().toRotationMatrix();
    T.topRightCorner<3, 1>() = Eigen::Vector3d(x, y, z);
    timestamps_s.push_back(t);
    poses.push_back(T);
  }
  return true;
}

}  // namespace pv::internal

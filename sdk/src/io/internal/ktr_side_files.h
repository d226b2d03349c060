// Ground-truth side files of a recording: <name>.gt.txt (TUM trajectory) and <name>.gt.ply.
#pragma once

#include <Eigen/Core>
#include <string>
#include <vector>

namespace pv::internal {

/// <name> of a recording path: the path without a trailing ".ktr".
std::string sideFileStem(const std::string& path);
/// Writes a TUM trajectory line per pose: "t tx ty tz qx qy qz qw" (seconds, metres).
bool writeTumTrajectory(const std::string& path, const std::vector<int64_t>& timestamps_ns,
                        const std::vector<Eigen::Matrix4d>& poses);
/// Reads a TUM trajectory (comment lines start with '#'); false when a line is malformed.
bool readTumTrajectory(const std::string& path, std::vector<double>& timestamps_s, std::vector<Eigen::Matrix4d>& poses);
/// Writes a binary little-endian PLY of a triangle mesh.
bool writeSurfacePly(const std::string& path, const std::vector<Eigen::Vector3f>& vertices,
                     const std::vector<Eigen::Vector3i>& triangles);

}  // namespace pv::internal

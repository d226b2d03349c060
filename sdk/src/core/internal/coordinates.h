// Conversions between the SDK's internal frame (IMAGE axes: x right, y down, z forward; metres)
// and the coordinate system and unit an application chose at open.
#pragma once

#include <Eigen/Core>

#include "pv/defines.h"
#include "pv/math.h"

namespace pv::internal {

/// Rotation C with p_system = C * p_image.
Eigen::Matrix3f basisFromImage(COORDINATE_SYSTEM system);
/// Metres to `unit` factor (1000 for millimetres).
float metresTo(UNIT unit);

/// A point in the IMAGE frame (metres) to the chosen system and unit.
float3 pointToUser(const Eigen::Vector3f& p_image_m, COORDINATE_SYSTEM system, UNIT unit);
/// A rigid transform expressed in IMAGE axes (metres) to the chosen system and unit: C T C^-1.
Transform transformToUser(const Eigen::Matrix4f& T_image_m, COORDINATE_SYSTEM system, UNIT unit);
/// The inverse of transformToUser.
Eigen::Matrix4f transformFromUser(const Transform& T_user, COORDINATE_SYSTEM system, UNIT unit);

}  // namespace pv::internal

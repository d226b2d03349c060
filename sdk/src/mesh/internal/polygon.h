// Triangulation of one polygon face read from a file.
#pragma once

#include <vector>

#include "pv/math.h"

namespace pv::internal {

/// Appends triangles covering the polygon whose corners lie at `corners`, as corner numbers
/// (0 .. corners.size() - 1). Polygons of up to 64 corners are ear-clipped in their best-fitting plane, so concave
/// faces come out right; larger ones, and any the clipping cannot finish, are fanned.
void triangulatePolygon(const std::vector<float3>& corners, std::vector<uint3>& triangles);

}  // namespace pv::internal

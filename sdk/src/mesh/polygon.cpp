#include "mesh/internal/polygon.h"

#include <cmath>

namespace pv::internal {
namespace {

constexpr size_t kMaxClippedCorners = 64;

struct P2 {
  double x, y;
};

double cross(const P2& o, const P2& a, const P2& b) { return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x); }

bool inside(const P2& p, const P2& a, const P2& b, const P2& c) {
  return cross(a, b, p) >= 0 && cross(b, c, p) >= 0 && cross(c, a, p) >= 0;
}

void fan(size_t n, std::vector<uint3>& out) {
  for (unsigned k = 1; k + 1 < n; ++k) out.push_back({0u, k, k + 1});
}

}  // namespace

void triangulatePolygon(const std::vector<float3>& corners, std::vector<uint3>& triangles) {
  const size_t n = corners.size();
  if (n < 3) return;
  if (n == 3 || n > kMaxClippedCorners) return fan(n, triangles);
  // Newell normal; the polygon is projected along its largest component.
  double nx = 0, ny = 0, nz = 0;
  for (size_t i = 0; i < n; ++i) {
    const float3& a = corners[i];
    const float3& b = corners[(i + 1) % n];
    nx += double(a.y - b.y) * double(a.z + b.z);
    ny += double(a.z - b.z) * double(a.x + b.x);
    nz += double(a.x - b.x) * double(a.y + b.y);
  }
  const double ax = std::fabs(nx), ay = std::fabs(ny), az = std::fabs(nz);
  if (!(ax + ay + az > 0) || !std::isfinite(ax + ay + az)) return fan(n, triangles);
  std::vector<P2> p(n);
  for (size_t i = 0; i < n; ++i) {
    const float3& v = corners[i];
    // Drop the dominant axis, keeping the projected polygon counter-clockwise.
    if (az >= ax && az >= ay)
      p[i] = {double(v.x), nz > 0 ? double(v.y) : -double(v.y)};
    else if (ax >= ay)
      p[i] = {double(v.y), nx > 0 ? double(v.z) : -double(v.z)};
    else
      p[i] = {double(v.z), ny > 0 ? double(v.x) : -double(v.x)};
  }
  std::vector<size_t> left(n);
  for (size_t i = 0; i < n; ++i) left[i] = i;
  std::vector<uint3> out;
  while (left.size() > 3) {
    const size_t m = left.size();
    bool clipped = false;
    for (size_t i = 0; i < m && !clipped; ++i) {
      const size_t a = left[(i + m - 1) % m], b = left[i], c = left[(i + 1) % m];
      if (cross(p[a], p[b], p[c]) <= 0) continue;  // reflex or flat corner
      bool empty = true;
      for (size_t j = 0; j < m && empty; ++j) {
        const size_t q = left[j];
        if (q != a && q != b && q != c && inside(p[q], p[a], p[b], p[c])) empty = false;
      }
      if (!empty) continue;
      out.push_back({unsigned(a), unsigned(b), unsigned(c)});
      left.erase(left.begin() + long(i));
      clipped = true;
    }
    if (!clipped) return fan(n, triangles);  // self-intersecting or degenerate
  }
  out.push_back({unsigned(left[0]), unsigned(left[1]), unsigned(left[2])});
  triangles.insert(triangles.end(), out.begin(), out.end());
}

}  // namespace pv::internal

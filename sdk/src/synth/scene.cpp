#include "synth/internal/scene.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

namespace pv::internal::synth {

namespace {

constexpr float kEps = 1e-4f;

inline uint32_t hash3(int x, int y, int z, uint32_t seed) {
  uint32_t h = uint32_t(x) * 0x8da6b343u ^ uint32_t(y) * 0xd8163841u ^ uint32_t(z) * 0xcb1ab31fu ^ seed * 0x9e3779b9u;
  h ^= h >> 16;
  h *= 0x7feb352du;
  h ^= h >> 15;
  h *= 0x846ca68bu;
  h ^= h >> 16;
  return h;
}

inline float lattice(int x, int y, int z, uint32_t seed) {
  return float(hash3(x, y, z, seed) >> 8) * (1.f / 16777216.f);
}

inline int fastFloor(float v) {
  const int i = int(v);
  return v < float(i) ? i - 1 : i;
}

inline float smooth(float t) { return t * t * (3.f - 2.f * t); }

float valueNoise(float x, float y, float z, uint32_t seed) {
  const int ix = fastFloor(x), iy = fastFloor(y), iz = fastFloor(z);
  const float fx = float(ix), fy = float(iy), fz = float(iz);
  const float tx = smooth(x - fx), ty = smooth(y - fy), tz = smooth(z - fz);
  float c[2][2];
  for (int dz = 0; dz < 2; ++dz)
    for (int dy = 0; dy < 2; ++dy) {
      const float a = lattice(ix, iy + dy, iz + dz, seed), b = lattice(ix + 1, iy + dy, iz + dz, seed);
      c[dz][dy] = a + (b - a) * tx;
    }
  const float y0 = c[0][0] + (c[0][1] - c[0][0]) * ty, y1 = c[1][0] + (c[1][1] - c[1][0]) * ty;
  return y0 + (y1 - y0) * tz;
}

bool slab(const Eigen::Vector3f& o, const Eigen::Vector3f& d, const Eigen::Vector3f& lo, const Eigen::Vector3f& hi,
          float& t_near, float& t_far, int& axis_near, int& axis_far) {
  t_near = -1e30f;
  t_far = 1e30f;
  axis_near = axis_far = 0;
  for (int a = 0; a < 3; ++a) {
    if (std::abs(d[a]) < 1e-12f) {
      if (o[a] < lo[a] || o[a] > hi[a]) return false;
      continue;
    }
    const float inv = 1.f / d[a];
    float t0 = (lo[a] - o[a]) * inv, t1 = (hi[a] - o[a]) * inv;
    if (t0 > t1) std::swap(t0, t1);
    if (t0 > t_near) {
      t_near = t0;
      axis_near = a;
    }
    if (t1 < t_far) {
      t_far = t1;
      axis_far = a;
    }
  }
  return t_near <= t_far;
}

Material material(cv::RNG& rng, float frequency) {
  Material m;
  const Eigen::Vector3f base(float(rng.uniform(0.2, 0.8)), float(rng.uniform(0.2, 0.8)), float(rng.uniform(0.2, 0.8)));
  m.color_a = base * 0.45f;
  m.color_b = (base * 1.25f).cwiseMin(1.f);
  m.frequency = frequency * float(rng.uniform(0.8, 1.25));
  m.seed = uint32_t(rng.next());
  return m;
}

Primitive box(Eigen::Vector3f lo, Eigen::Vector3f hi, int material) {
  Primitive p;
  p.kind = Primitive::Kind::BOX;
  p.lo = lo;
  p.hi = hi;
  p.material = material;
  return p;
}
Primitive sphere(Eigen::Vector3f c, float r, int material) {
  Primitive p;
  p.kind = Primitive::Kind::SPHERE;
  p.center = c;
  p.radius = r;
  p.material = material;
  return p;
}
Primitive cylinder(float x, float z, float y0, float y1, float r, int material) {
  Primitive p;
  p.kind = Primitive::Kind::CYLINDER;
  p.lo = Eigen::Vector3f(x, y0, z);
  p.hi = Eigen::Vector3f(x, y1, z);
  p.radius = r;
  p.material = material;
  return p;
}

void addBoxMesh(const Eigen::Vector3f& lo, const Eigen::Vector3f& hi, bool inward, std::vector<Eigen::Vector3f>& v,
                std::vector<Eigen::Vector3i>& f) {
  const int base = int(v.size());
  for (int i = 0; i < 8; ++i) v.emplace_back(i & 1 ? hi.x() : lo.x(), i & 2 ? hi.y() : lo.y(), i & 4 ? hi.z() : lo.z());
  // Outward-facing quads (counter-clockwise seen from outside).
  const int quads[6][4] = {{0, 4, 6, 2}, {1, 3, 7, 5}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 2, 3, 1}, {4, 5, 7, 6}};
  for (const auto& q : quads) {
    Eigen::Vector3i a(base + q[0], base + q[1], base + q[2]), b(base + q[0], base + q[2], base + q[3]);
    if (inward) {
      std::swap(a[1], a[2]);
      std::swap(b[1], b[2]);
    }
    f.push_back(a);
    f.push_back(b);
  }
}

}  // namespace

float fractalNoise(const Eigen::Vector3f& p, uint32_t seed) {
  float sum = 0, amplitude = 0.5f, frequency = 1.f, norm = 0;
  for (int octave = 0; octave < 3; ++octave) {
    sum += amplitude * valueNoise(p.x() * frequency, p.y() * frequency, p.z() * frequency, seed + uint32_t(octave));
    norm += amplitude;
    amplitude *= 0.6f;
    frequency *= 2.63f;
  }
  return sum / norm;
}

bool Scene::known(const std::string& name) { return name == "room" || name == "object"; }

Scene Scene::build(const std::string& name, uint32_t seed) {
  Scene s;
  if (!known(name)) return s;
  cv::RNG rng(uint64_t(seed) * 7919u + 17u);
  s.light_dir_ = Eigen::Vector3f(0.4f, 0.8f, 0.3f).normalized();
  auto addMaterial = [&](float frequency) {
    s.materials_.push_back(material(rng, frequency));
    return int(s.materials_.size()) - 1;
  };
  auto jitter = [&](float amount) { return float(rng.uniform(-amount, amount)); };
  if (name == "room") {
    // Walls, floor and ceiling: one ROOM primitive with three materials in a row.
    Primitive room;
    room.kind = Primitive::Kind::ROOM;
    room.lo = Eigen::Vector3f(-2.0f, 0.f, -2.0f);
    room.hi = Eigen::Vector3f(2.0f, 2.7f, 2.0f);
    room.material = addMaterial(5.f);
    addMaterial(6.f);
    addMaterial(4.f);
    s.primitives_.push_back(room);
    const float tx = jitter(0.2f), tz = jitter(0.2f);
    s.primitives_.push_back(box({-1.9f, 0.f, -1.3f + tz}, {-1.1f, 0.75f, 0.1f + tz}, addMaterial(7.f)));  // table
    s.primitives_.push_back(box({1.35f, 0.f, -1.9f + tx}, {1.95f, 1.8f, -1.2f + tx}, addMaterial(6.f)));  // cabinet
    s.primitives_.push_back(box({0.5f + tx, 0.f, 1.3f}, {1.5f + tx, 0.45f, 1.95f}, addMaterial(8.f)));    // chest
    s.primitives_.push_back(box({-1.95f, 0.f, 1.2f}, {-1.5f, 2.0f, 1.95f}, addMaterial(6.f)));            // shelf
    s.primitives_.push_back(sphere({-1.5f, 0.75f + 0.22f, -0.6f + tz}, 0.22f, addMaterial(10.f)));
    s.primitives_.push_back(sphere({1.0f + tx, 0.45f + 0.3f, 1.6f}, 0.3f, addMaterial(9.f)));
    s.primitives_.push_back(sphere({1.2f, 0.35f, 0.2f + tz}, 0.35f, addMaterial(9.f)));
    s.primitives_.push_back(cylinder(1.55f, 0.9f + tz, 0.f, 1.1f, 0.18f, addMaterial(9.f)));
    s.primitives_.push_back(cylinder(-0.6f + tx, -1.6f, 0.f, 0.9f, 0.25f, addMaterial(8.f)));
    s.primitives_.push_back(cylinder(-1.2f, 1.55f, 0.f, 2.7f, 0.12f, addMaterial(9.f)));  // pillar
  } else {
    Primitive room;
    room.kind = Primitive::Kind::ROOM;
    room.lo = Eigen::Vector3f(-2.2f, 0.f, -2.2f);
    room.hi = Eigen::Vector3f(2.2f, 2.8f, 2.2f);
    room.material = addMaterial(4.f);
    addMaterial(5.f);
    addMaterial(3.f);
    s.primitives_.push_back(room);
    s.primitives_.push_back(box({-0.5f, 0.f, -0.4f}, {0.5f, 0.75f, 0.4f}, addMaterial(8.f)));  // table
    s.primitives_.push_back(sphere({jitter(0.05f), 0.75f + 0.15f, jitter(0.05f)}, 0.15f, addMaterial(14.f)));
    s.primitives_.push_back(box({0.12f, 0.75f, 0.02f}, {0.32f, 1.0f, 0.22f}, addMaterial(16.f)));
    s.primitives_.push_back(cylinder(-0.22f, -0.12f, 0.75f, 1.05f, 0.08f, addMaterial(16.f)));
    s.primitives_.push_back(box({-0.3f, 0.75f, 0.12f}, {-0.1f, 0.85f, 0.3f}, addMaterial(18.f)));
    s.orbit_ = true;
  }
  return s;
}

bool Scene::intersect(const Eigen::Vector3f& o, const Eigen::Vector3f& d, Hit& hit) const {
  hit.t = 1e30f;
  hit.material = -1;
  for (const Primitive& p : primitives_) {
    switch (p.kind) {
      case Primitive::Kind::BOX: {
        float tn, tf;
        int an, af;
        if (!slab(o, d, p.lo, p.hi, tn, tf, an, af) || tn <= kEps || tn >= hit.t) break;
        hit.t = tn;
        hit.normal = Eigen::Vector3f::Zero();
        hit.normal[an] = d[an] > 0 ? -1.f : 1.f;
        hit.material = p.material;
        break;
      }
      case Primitive::Kind::ROOM: {
        float tn, tf;
        int an, af;
        if (!slab(o, d, p.lo, p.hi, tn, tf, an, af) || tf <= kEps || tf >= hit.t) break;
        hit.t = tf;
        hit.normal = Eigen::Vector3f::Zero();
        hit.normal[af] = d[af] > 0 ? -1.f : 1.f;
        hit.material = p.material + (af == 1 ? (d[1] < 0 ? 1 : 2) : 0);
        break;
      }
      case Primitive::Kind::SPHERE: {
        const Eigen::Vector3f oc = o - p.center;
        const float a = d.squaredNorm(), b = oc.dot(d), c = oc.squaredNorm() - p.radius * p.radius;
        const float disc = b * b - a * c;
        if (disc < 0) break;
        const float sq = std::sqrt(disc);
        float t = (-b - sq) / a;
        if (t <= kEps) t = (-b + sq) / a;
        if (t <= kEps || t >= hit.t) break;
        hit.t = t;
        hit.normal = (oc + t * d) / p.radius;
        hit.material = p.material;
        break;
      }
      case Primitive::Kind::CYLINDER: {
        const float ox = o.x() - p.lo.x(), oz = o.z() - p.lo.z();
        const float a = d.x() * d.x() + d.z() * d.z(), b = ox * d.x() + oz * d.z(),
                    c = ox * ox + oz * oz - p.radius * p.radius;
        if (a > 1e-12f) {
          const float disc = b * b - a * c;
          if (disc >= 0) {
            const float t = (-b - std::sqrt(disc)) / a;
            const float y = o.y() + t * d.y();
            if (t > kEps && t < hit.t && y >= p.lo.y() && y <= p.hi.y()) {
              hit.t = t;
              hit.normal = Eigen::Vector3f(ox + t * d.x(), 0.f, oz + t * d.z()) / p.radius;
              hit.material = p.material;
            }
          }
        }
        if (std::abs(d.y()) > 1e-12f) {  // caps
          for (float cap_y : {p.lo.y(), p.hi.y()}) {
            const float t = (cap_y - o.y()) / d.y();
            const float x = ox + t * d.x(), z = oz + t * d.z();
            if (t > kEps && t < hit.t && x * x + z * z <= p.radius * p.radius) {
              hit.t = t;
              hit.normal = Eigen::Vector3f(0.f, cap_y == p.hi.y() ? 1.f : -1.f, 0.f);
              hit.material = p.material;
            }
          }
        }
        break;
      }
    }
  }
  return hit.material >= 0;
}

Eigen::Vector3f Scene::shade(const Eigen::Vector3f& point, const Hit& hit) const {
  const Material& m = materials_[size_t(hit.material)];
  const Eigen::Vector3f q = point * m.frequency;
  const float coarse = fractalNoise(q, m.seed);
  // The fine lattice is turned off the world axes so that walls show no square cells.
  static const Eigen::Matrix3f kTurn =
      (Eigen::AngleAxisf(0.61f, Eigen::Vector3f(0.3f, 0.8f, 0.5f).normalized()).toRotationMatrix() * 7.3f);
  const Eigen::Vector3f r = kTurn * q;
  const float fine = valueNoise(r.x(), r.y(), r.z(), m.seed ^ 0x5bd1e995u);
  const float mix = std::clamp(1.3f * (coarse - 0.5f) + 0.5f + 0.8f * (fine - 0.5f), 0.f, 1.f);
  const float light = 0.5f + 0.5f * std::max(0.f, hit.normal.dot(light_dir_));
  return (m.color_a + (m.color_b - m.color_a) * mix) * light;
}

void Scene::cameraPath(double t, Eigen::Vector3d& position, Eigen::Vector3d& target) const {
  if (orbit_) {
    const double angle = 2 * CV_PI * t / 24.0;
    position = Eigen::Vector3d(1.15 * std::cos(angle), 1.2 + 0.1 * std::sin(0.6 * t), 1.15 * std::sin(angle));
    target = Eigen::Vector3d(0.0, 0.85, 0.0);
    return;
  }
  const double yaw = 2 * CV_PI * t / 16.0 + 0.3 * std::sin(0.7 * t);
  position = Eigen::Vector3d(0.35 * std::cos(0.4 * t), 1.35 + 0.08 * std::sin(0.9 * t), 0.28 * std::sin(0.4 * t));
  target = position + Eigen::Vector3d(std::sin(yaw), -0.2 + 0.1 * std::sin(0.5 * t), -std::cos(yaw));
}

void Scene::triangulate(std::vector<Eigen::Vector3f>& v, std::vector<Eigen::Vector3i>& f) const {
  for (const Primitive& p : primitives_) {
    if (p.kind == Primitive::Kind::BOX || p.kind == Primitive::Kind::ROOM) {
      addBoxMesh(p.lo, p.hi, p.kind == Primitive::Kind::ROOM, v, f);
    } else if (p.kind == Primitive::Kind::SPHERE) {
      const int rings = 24, segments = 48, base = int(v.size());
      for (int r = 0; r <= rings; ++r) {
        const float th = float(CV_PI) * float(r) / float(rings);
        for (int s = 0; s < segments; ++s) {
          const float ph = 2.f * float(CV_PI) * float(s) / float(segments);
          v.push_back(p.center + p.radius * Eigen::Vector3f(std::sin(th) * std::cos(ph), std::cos(th),
                                                            std::sin(th) * std::sin(ph)));
        }
      }
      for (int r = 0; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
          const int a = base + r * segments + s, b = base + r * segments + (s + 1) % segments;
          f.emplace_back(a, b, b + segments);
          f.emplace_back(a, b + segments, a + segments);
        }
    } else {
      const int segments = 64, base = int(v.size());
      for (int s = 0; s < segments; ++s) {
        const float ph = 2.f * float(CV_PI) * float(s) / float(segments);
        const float x = p.lo.x() + p.radius * std::cos(ph), z = p.lo.z() + p.radius * std::sin(ph);
        v.emplace_back(x, p.lo.y(), z);
        v.emplace_back(x, p.hi.y(), z);
      }
      v.emplace_back(p.lo.x(), p.lo.y(), p.lo.z());
      v.emplace_back(p.lo.x(), p.hi.y(), p.lo.z());
      const int bottom = base + 2 * segments, top = bottom + 1;
      for (int s = 0; s < segments; ++s) {
        const int a0 = base + 2 * s, a1 = a0 + 1, b0 = base + 2 * ((s + 1) % segments), b1 = b0 + 1;
        f.emplace_back(a0, a1, b1);
        f.emplace_back(a0, b1, b0);
        f.emplace_back(top, b1, a1);
        f.emplace_back(bottom, a0, b0);
      }
    }
  }
}

}  // namespace pv::internal::synth

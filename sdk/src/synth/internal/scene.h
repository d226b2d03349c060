// Analytic scenes for synthetic recordings: boxes, spheres and upright cylinders with solid
// procedural textures (3D value noise evaluated at the surface point, so a surface looks the
// same from every viewpoint and never repeats). World frame: metres, y up, floor at y = 0.
#pragma once

#include <Eigen/Core>
#include <cstdint>
#include <string>
#include <vector>

namespace pv::internal::synth {

struct Material {
  Eigen::Vector3f color_a, color_b;  ///< BGR in 0..1, mixed by the noise
  float frequency = 4.f;             ///< cycles per metre of the coarsest octave
  uint32_t seed = 1;
};

struct Primitive {
  enum class Kind { BOX, ROOM, SPHERE, CYLINDER } kind = Kind::BOX;
  Eigen::Vector3f lo = Eigen::Vector3f::Zero();      ///< BOX/ROOM bounds; CYLINDER: axis at (lo.x, lo.z),
  Eigen::Vector3f hi = Eigen::Vector3f::Zero();      ///< y from lo.y to hi.y
  Eigen::Vector3f center = Eigen::Vector3f::Zero();  ///< SPHERE
  float radius = 0;                                  ///< SPHERE and CYLINDER
  int material = 0;
};

struct Hit {
  float t = 0;  ///< along the (unnormalised) ray direction
  Eigen::Vector3f normal = Eigen::Vector3f::Zero();
  int material = -1;
};

class Scene {
 public:
  /// "room" or "object"; `seed` varies the textures and the furniture. Empty scene when unknown.
  static Scene build(const std::string& name, uint32_t seed);
  static bool known(const std::string& name);

  bool empty() const { return primitives_.empty(); }
  /// Nearest surface along origin + t * dir, t > 0.
  bool intersect(const Eigen::Vector3f& origin, const Eigen::Vector3f& dir, Hit& hit) const;
  /// Lit surface colour (BGR, 0..1) at a point; view independent.
  Eigen::Vector3f shade(const Eigen::Vector3f& point, const Hit& hit) const;
  /// Camera path of the scene: camera centre and viewing target at time t (seconds).
  void cameraPath(double t, Eigen::Vector3d& position, Eigen::Vector3d& target) const;
  /// Triangle mesh of every surface (for the ground-truth PLY).
  void triangulate(std::vector<Eigen::Vector3f>& vertices, std::vector<Eigen::Vector3i>& triangles) const;

 private:
  std::vector<Primitive> primitives_;
  std::vector<Material> materials_;
  bool orbit_ = false;  // object scene: the camera orbits the table
  Eigen::Vector3f light_dir_ = Eigen::Vector3f::UnitY();
};

/// Fractal 3D value noise in 0..1 (3 octaves), deterministic for a seed.
float fractalNoise(const Eigen::Vector3f& p, uint32_t seed);

}  // namespace pv::internal::synth

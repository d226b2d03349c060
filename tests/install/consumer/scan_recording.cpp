// Scans a KTR recording with the PAVO SDK's public interface: depth, tracking and a mesh. Prints
// what it found and exits non-zero when a step fails or gives nothing.
//
//   scan_recording F.ktr OUT.ply
#include <pv/pavo.h>

#include <cmath>
#include <cstdio>

namespace {

int fail(const char* step, pv::ERROR_CODE code) {
  std::fprintf(stderr, "scan_recording: %s: %s (%s)\n", step, pv::toString(code).c_str(),
               pv::lastErrorDetail().c_str());
  return 1;
}

// Share of the depth map's pixels that hold a depth.
double validShare(const pv::Mat& depth) {
  size_t valid = 0;
  for (size_t y = 0; y < depth.getHeight(); ++y)
    for (size_t x = 0; x < depth.getWidth(); ++x)
      if (std::isfinite(*depth.getPixel<float>(x, y))) ++valid;
  return double(valid) / double(depth.getWidth() * depth.getHeight());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: scan_recording F.ktr OUT.ply\n");
    return 2;
  }
  pv::Camera camera;
  pv::InitParameters init;
  init.input.setFromKTRFile(argv[1]);
  init.coordinate_system = pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
  pv::ERROR_CODE code = camera.open(init);
  if (code != pv::ERROR_CODE::SUCCESS) return fail("open", code);
  if ((code = camera.enablePositionalTracking()) != pv::ERROR_CODE::SUCCESS) return fail("tracking", code);
  pv::SpatialMappingParameters mapping;
  mapping.resolution_meter = 0.05f;
  if ((code = camera.enableSpatialMapping(mapping)) != pv::ERROR_CODE::SUCCESS) return fail("mapping", code);

  const int frames = camera.getKTRNumberOfFrames();
  int grabbed = 0, tracked = 0;
  double least_depth = 1.0;
  pv::Mat depth;
  pv::Pose pose;
  while ((code = camera.grab()) == pv::ERROR_CODE::SUCCESS) {
    ++grabbed;
    if ((code = camera.retrieveMeasure(depth, pv::MEASURE::DEPTH)) != pv::ERROR_CODE::SUCCESS)
      return fail("depth", code);
    const double share = validShare(depth);
    if (share < least_depth) least_depth = share;
    if (camera.getPosition(pose) == pv::POSITIONAL_TRACKING_STATE::OK) ++tracked;
  }
  if (code != pv::ERROR_CODE::END_OF_KTR_FILE_REACHED) return fail("grab", code);

  pv::Mesh mesh;
  if ((code = camera.extractWholeSpatialMap(mesh)) != pv::ERROR_CODE::SUCCESS) return fail("extract", code);
  if (!mesh.save(argv[2], pv::MESH_FILE_FORMAT::PLY)) return fail("save", pv::ERROR_CODE::FAILURE);
  const pv::Translation t = pose.getTranslation();
  std::printf("frames %d of %d, tracked %d, least depth cover %.2f, last position %.3f %.3f %.3f m, %zu triangles\n",
              grabbed, frames, tracked, least_depth, t.x, t.y, t.z, mesh.getNumberOfTriangles());
  const bool ok =
      frames > 0 && grabbed == frames && tracked > 0 && least_depth > 0.3 && mesh.getNumberOfTriangles() > 0;
  if (!ok) std::fprintf(stderr, "scan_recording: the recording gave too little\n");
  return ok ? 0 : 1;
}

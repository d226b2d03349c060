// pavo map: headless scan of a recording with the application's mapping parameters and output
// files, a progress bar on a terminal and a last line of figures.
#include <unistd.h>

#include <Eigen/Geometry>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <map>
#include <sstream>

#include "command.h"
#include "core/internal/camera_state.h"
#include "core/internal/coordinates.h"
#include "ground_truth.h"
#include "mapping/internal/mapping_module.h"
#include "pv/camera.h"

namespace {

const char* const kName = "map";
using Clock = std::chrono::steady_clock;

struct Options {
  std::string ktr, out_dir, trajectory;
  bool points = false, texture = false, save_raw = false, two_pass = false, gt_poses = false;
  float resolution_m = 0.05f, range_m = -1.f;
  int memory_mb = 2048;
  pv::DEPTH_MODE depth_mode = pv::DEPTH_MODE::PERFORMANCE;
  int filter = -1;  // -1: none, else MeshFilterParameters::MESH_FILTER
};

int parse(const pavo::Args& args, Options& o) {
  if (!args.error().empty()) return pavo::usageError(kName, args.error());
  const auto unknown = args.unknown({"o", "type", "resolution", "range", "depth-mode", "memory", "filter", "texture",
                                     "save-raw", "two-pass", "gt-poses", "trajectory"});
  if (!unknown.empty()) return pavo::usageError(kName, "unknown option --" + unknown.front());
  if (args.positional().size() != 1) return pavo::usageError(kName, "expects one recording FILE.ktr");
  o.ktr = args.positional()[0];
  o.out_dir = args.get("o");
  if (o.out_dir.empty()) return pavo::usageError(kName, "-o DIR is required");
  const std::string type = args.get("type", "mesh");
  if (type != "mesh" && type != "points") return pavo::usageError(kName, "--type is mesh or points");
  o.points = type == "points";
  bool ok = true;
  o.resolution_m = float(args.getNumber("resolution", 0.05, &ok));
  if (!ok || o.resolution_m < pv::SpatialMappingParameters::allowed_resolution.first - 1e-6f ||
      o.resolution_m > pv::SpatialMappingParameters::allowed_resolution.second + 1e-6f)
    return pavo::usageError(kName, "--resolution takes metres between 0.01 and 0.20");
  if (args.get("range", "auto") != "auto") {
    o.range_m = float(args.getNumber("range", -1, &ok));
    if (!ok || o.range_m < pv::SpatialMappingParameters::allowed_range.first - 1e-6f ||
        o.range_m > pv::SpatialMappingParameters::allowed_range.second + 1e-6f)
      return pavo::usageError(kName, "--range takes metres between 1 and 20, or auto");
  }
  o.memory_mb = int(args.getNumber("memory", 2048, &ok));
  if (!ok || o.memory_mb <= 0) return pavo::usageError(kName, "--memory takes a positive number of MB");
  const std::map<std::string, pv::DEPTH_MODE> modes{{"performance", pv::DEPTH_MODE::PERFORMANCE},
                                                    {"quality", pv::DEPTH_MODE::QUALITY},
                                                    {"ultra", pv::DEPTH_MODE::ULTRA}};
  const auto mode = modes.find(args.get("depth-mode", "performance"));
  if (mode == modes.end()) return pavo::usageError(kName, "--depth-mode is performance, quality or ultra");
  o.depth_mode = mode->second;
  const std::map<std::string, int> filters{{"none", -1}, {"low", 0}, {"medium", 1}, {"high", 2}};
  const auto filter = filters.find(args.get("filter", "none"));
  if (filter == filters.end()) return pavo::usageError(kName, "--filter is low, medium, high or none");
  o.filter = filter->second;
  o.texture = args.has("texture");
  o.save_raw = args.has("save-raw");
  o.two_pass = args.has("two-pass");
  o.gt_poses = args.has("gt-poses");
  o.trajectory = args.get("trajectory");
  if (o.points && (o.texture || o.filter >= 0 || o.save_raw))
    return pavo::usageError(kName, "--texture, --filter and --save-raw apply to meshes only");
  if (o.two_pass && o.gt_poses) return pavo::usageError(kName, "--two-pass and --gt-poses exclude each other");
  if (o.gt_poses && !o.trajectory.empty())
    return pavo::usageError(kName, "--trajectory records tracking, which --gt-poses leaves off");
  return 0;
}

void progress(int frame, int total, double fps) {
  if (!isatty(STDERR_FILENO) || total <= 0) return;
  const int width = 30, filled = std::min(width, width * frame / total);
  std::fprintf(stderr, "\r  [%s%s] %3d%%  frame %d/%d  %.1f fps", std::string(size_t(filled), '#').c_str(),
               std::string(size_t(width - filled), '.').c_str(), 100 * frame / total, frame, total, fps);
}

/// Writes the tracked pose of each frame (TUM format, the application's coordinate system).
class TrajectoryWriter {
 public:
  bool open(const std::string& path) {
    if (path.empty()) return true;
    out_.open(path);
    return bool(out_);
  }
  void add(pv::Camera& camera) {
    if (!out_.is_open()) return;
    pv::Pose pose;
    camera.getPosition(pose, pv::REFERENCE_FRAME::WORLD);
    const pv::Translation t = pose.getTranslation();
    const pv::Orientation q = pose.getOrientation();
    char line[256];
    std::snprintf(line, sizeof line, "%.9f %.6f %.6f %.6f %.7f %.7f %.7f %.7f\n", double(camera.getTimestamp()) * 1e-9,
                  t.x, t.y, t.z, q.x, q.y, q.z, q.w);
    out_ << line;
  }

 private:
  std::ofstream out_;
};

/// The scan loop: grabs to the end, requests the map at the application's cadence and copies it
/// on another thread while grabs go on.
struct ScanResult {
  int frames = 0;
  double seconds = 0;
  bool out_of_memory = false;
  pv::internal::MappingStats stats;
};

int grabAll(pv::Camera& camera, bool mapping, bool points, TrajectoryWriter* trajectory, ScanResult& r) {
  pv::Mesh live_mesh;
  pv::FusedPointCloud live_cloud;
  std::future<void> copying;
  int last_request = 0;
  bool requested = false;
  const int total = camera.getKTRNumberOfFrames();
  const auto start = Clock::now();
  for (;;) {
    const pv::ERROR_CODE code = camera.grab();
    if (code == pv::ERROR_CODE::END_OF_KTR_FILE_REACHED) break;
    if (code == pv::ERROR_CODE::CORRUPTED_FRAME) continue;
    if (code != pv::ERROR_CODE::SUCCESS) {
      std::cerr << "\npavo map: grab failed: " << pv::toString(code).c_str() << " (" << pv::lastErrorDetail().c_str()
                << ")\n";
      return 1;
    }
    ++r.frames;
    if (trajectory) trajectory->add(camera);
    if (mapping) {
      if (!requested && r.frames > last_request + 40 &&
          (!copying.valid() || copying.wait_for(std::chrono::seconds(0)) == std::future_status::ready)) {
        camera.requestSpatialMapAsync();
        requested = true;
      } else if (requested && camera.getSpatialMapRequestStatusAsync() == pv::ERROR_CODE::SUCCESS) {
        requested = false;
        last_request = r.frames;
        copying = std::async(std::launch::async, [&camera, &live_mesh, &live_cloud, points] {
          if (points)
            (void)camera.retrieveSpatialMapAsync(live_cloud);
          else
            (void)camera.retrieveSpatialMapAsync(live_mesh);
        });
      }
      if (camera.getSpatialMappingState() == pv::SPATIAL_MAPPING_STATE::NOT_ENOUGH_MEMORY) {
        r.out_of_memory = true;
        break;
      }
    }
    progress(r.frames, total, r.frames / std::max(1e-9, std::chrono::duration<double>(Clock::now() - start).count()));
  }
  if (copying.valid()) copying.wait();
  r.seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (isatty(STDERR_FILENO)) std::fprintf(stderr, "\n");
  return 0;
}

double surfaceArea(const pv::Mesh& mesh) {
  double area = 0;
  for (const auto& t : mesh.triangles) {
    const auto &a = mesh.vertices[t.x], &b = mesh.vertices[t.y], &c = mesh.vertices[t.z];
    const Eigen::Vector3f ab(b.x - a.x, b.y - a.y, b.z - a.z), ac(c.x - a.x, c.y - a.y, c.z - a.z);
    area += 0.5 * double(ab.cross(ac).norm());
  }
  return area;
}

int save(bool ok, const std::string& path) {
  if (ok) {
    std::cout << "wrote " << path << "\n";
    return 0;
  }
  return pavo::failure(kName, "writing " + path + " failed: " + pv::lastErrorDetail().c_str());
}

int runMap(int argc, char** argv) {
  const pavo::Args args(argc, argv, {"texture", "save-raw", "two-pass", "gt-poses"});
  Options o;
  if (const int bad = parse(args, o)) return bad;
  std::error_code ec;
  std::filesystem::create_directories(o.out_dir, ec);
  if (ec) return pavo::failure(kName, "cannot create " + o.out_dir + ": " + ec.message());

  pv::InitParameters init;
  init.input.setFromKTRFile(pv::String(o.ktr.c_str()));
  init.depth_mode = o.depth_mode;
  init.coordinate_system = pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;  // as the ground-truth files
  init.coordinate_units = pv::UNIT::METER;
  pv::Camera camera;
  if (const pv::ERROR_CODE code = camera.open(init); code != pv::ERROR_CODE::SUCCESS)
    return pavo::failure(
        kName, "cannot open " + o.ktr + ": " + pv::toString(code).c_str() + " (" + pv::lastErrorDetail().c_str() + ")");
  // With --gt-poses the map is fused at the recording's true poses: no tracking runs.
  if (!o.gt_poses && camera.enablePositionalTracking() != pv::ERROR_CODE::SUCCESS)
    return pavo::failure(kName, std::string("positional tracking failed: ") + pv::lastErrorDetail().c_str());

  pv::SpatialMappingParameters mp;
  mp.resolution_meter = o.resolution_m;
  mp.range_meter = o.range_m;
  mp.max_memory_usage = o.memory_mb;
  mp.save_texture = o.texture;
  mp.use_chunk_only = true;
  mp.map_type = o.points ? pv::SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD : pv::SPATIAL_MAP_TYPE::MESH;

  pavo::GroundTruth gt;
  if (o.gt_poses) {
    const std::string base = pavo::recordingStem(o.ktr);
    if (!gt.read(base + ".gt.txt")) return pavo::failure(kName, "--gt-poses: cannot read " + base + ".gt.txt");
    pv::internal::CameraState* state = camera.state();
    state->refined_pose = [&gt, state](int index, Eigen::Matrix4f& T) {
      return gt.pose(state->frame.timestamp_ns, index, T);
    };
    mp.map_type = o.points ? pv::SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD_OFFLINE : pv::SPATIAL_MAP_TYPE::MESH_OFFLINE;
  }
  ScanResult pass1;
  if (o.two_pass) {
    std::cout << "pass 1 of 2: tracking\n";
    if (const int failed = grabAll(camera, false, o.points, nullptr, pass1)) return failed;
    // The application's hand-over: tracking off, rewind, and on again without area memory; the
    // second pass then reports and fuses at the poses the first pass refined.
    camera.disablePositionalTracking();
    camera.setKTRPosition(0);
    pv::PositionalTrackingParameters second;
    second.enable_area_memory = false;
    if (camera.enablePositionalTracking(second) != pv::ERROR_CODE::SUCCESS)
      return pavo::failure(kName, std::string("positional tracking failed: ") + pv::lastErrorDetail().c_str());
    mp.map_type = o.points ? pv::SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD_OFFLINE : pv::SPATIAL_MAP_TYPE::MESH_OFFLINE;
    std::cout << "pass 2 of 2: mapping\n";
  }
  if (camera.enableSpatialMapping(mp) != pv::ERROR_CODE::SUCCESS)
    return pavo::failure(kName, std::string("spatial mapping failed: ") + pv::lastErrorDetail().c_str());
  const pv::SpatialMappingParameters used = camera.getSpatialMappingParameters();

  TrajectoryWriter trajectory;
  if (!trajectory.open(o.trajectory)) return pavo::failure(kName, "cannot write " + o.trajectory);
  ScanResult scan;
  if (const int failed = grabAll(camera, true, o.points, &trajectory, scan)) return failed;
  if (scan.out_of_memory) std::cout << "mapping memory full (" << o.memory_mb << " MB): the scan stopped there\n";

  pv::Mesh mesh;
  pv::FusedPointCloud cloud;
  const auto extract_start = Clock::now();
  const pv::ERROR_CODE extracted =
      o.points ? camera.extractWholeSpatialMap(cloud) : camera.extractWholeSpatialMap(mesh);
  const double extract_s = std::chrono::duration<double>(Clock::now() - extract_start).count();
  const auto module = std::atomic_load(&camera.state()->mapping_module);
  if (module) scan.stats = module->stats();
  camera.disableSpatialMapping();
  camera.disablePositionalTracking();
  if (extracted != pv::ERROR_CODE::SUCCESS)
    return pavo::failure(kName, std::string("extraction failed: ") + pv::lastErrorDetail().c_str());

  const double memory_mb =
      double(scan.stats.block_bytes + scan.stats.mesh_bytes + scan.stats.keyframe_bytes) / (1 << 20);
  const double area = o.points ? 0.0 : surfaceArea(mesh);
  char figures[512];
  std::snprintf(figures, sizeof figures,
                "frames %d, %.1f fps (%d fused at %.1f ms each on the mapping thread, %zu dropped), %s %zu, memory "
                "%.1f MB%s, voxel %.3f m, range %.2f m, extraction %.2f s",
                scan.frames, scan.frames / std::max(scan.seconds, 1e-9), int(scan.stats.frames_fused),
                scan.stats.integrate_ms_total / double(std::max<size_t>(scan.stats.frames_fused, 1)),
                scan.stats.frames_dropped, o.points ? "points" : "triangles",
                o.points ? cloud.getNumberOfPoints() : mesh.getNumberOfTriangles(), memory_mb,
                area > 0 ? (" (" + std::to_string(memory_mb / area).substr(0, 5) + " MB/m^2 of surface)").c_str() : "",
                double(used.resolution_meter), double(used.range_meter), extract_s);

  int status = 0;
  const std::string dir = o.out_dir + "/";
  if (o.points) {
    status = save(cloud.save(pv::String((dir + "fused_point_cloud.ply").c_str()), pv::MESH_FILE_FORMAT::PLY),
                  dir + "fused_point_cloud.ply");
  } else {
    if (o.save_raw)
      status |=
          save(mesh.save(pv::String((dir + "mesh_raw.ply").c_str()), pv::MESH_FILE_FORMAT::PLY), dir + "mesh_raw.ply");
    if (o.filter >= 0 && !mesh.filter(pv::MeshFilterParameters(pv::MeshFilterParameters::MESH_FILTER(o.filter))))
      status = pavo::failure(kName, std::string("filtering failed: ") + pv::lastErrorDetail().c_str());
    else if (o.texture && !mesh.applyTexture(pv::MESH_TEXTURE_FORMAT::RGB))
      status = pavo::failure(kName, std::string("texturing failed: ") + pv::lastErrorDetail().c_str());
    else if (o.texture)
      status |= save(mesh.save(pv::String((dir + "mesh.obj").c_str()), pv::MESH_FILE_FORMAT::OBJ), dir + "mesh.obj");
    else
      status |= save(mesh.save(pv::String((dir + "mesh.ply").c_str()), pv::MESH_FILE_FORMAT::PLY), dir + "mesh.ply");
  }
  std::cout << figures << "\n";
  return status;
}

}  // namespace

PAVO_COMMAND("map",
             "FILE.ktr -o DIR [--type mesh|points] [--resolution M] [--range M|auto] "
             "[--depth-mode performance|quality|ultra] [--memory MB] [--filter low|medium|high|none] [--texture] "
             "[--save-raw] [--two-pass] [--gt-poses] [--trajectory TRAJ.txt]",
             "scans a recording headless and writes the map files (mesh.ply, mesh.obj, mesh_raw.ply, "
             "fused_point_cloud.ply)",
             runMap);

#include "long_scan.h"

#include <sys/resource.h>
#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

#include "mapping/internal/mapping_module.h"
#include "pv/camera.h"
#include "tracking/internal/tracking_module.h"
#include "tracking/internal/trajectory_store.h"

namespace mapura::bench {

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

double residentMb() {
  std::ifstream statm("/proc/self/statm");
  long long size = 0, resident = 0;
  statm >> size >> resident;
  return double(resident) * double(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

double heapInUseMb() {
#if defined(__GLIBC__)
  const struct mallinfo2 m = mallinfo2();
  return double(m.uordblks + m.hblkhd) / (1 << 20);
#else
  return 0;
#endif
}

double cpuSeconds() {
  struct rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

// The map's and the tracking's own figures, read on the grabbing thread between grabs.
void readModules(pv::Camera& camera, LongScanSample& s) {
  pv::internal::CameraState* state = camera.state();
  if (const auto mapping = std::atomic_load(&state->mapping_module)) {
    const pv::internal::MappingStats stats = mapping->stats();
    s.map_mb = double(stats.block_bytes + stats.mesh_bytes + stats.keyframe_bytes) / (1 << 20);
    s.blocks = stats.blocks;
    s.texture_images = stats.keyframes;
  }
  if (const auto tracking = std::atomic_load(&state->tracking_module); tracking && tracking->engine) {
    s.keyframes = tracking->engine->map().keyframes.size();
    s.landmarks = tracking->engine->map().landmarks.size();
  }
  if (const pv::internal::TrajectoryStore* store = pv::internal::trajectoryStore(*state))
    s.tracked = store->measuredCount();
}

// The worker's map hand-over: a request once the previous map was taken and more than 40 frames
// passed, then the retrieval into the mesh the view keeps.
class MapFetcher {
 public:
  void step(pv::Camera& camera, int frame, pv::Mesh& kept) {
    if (!requested_) {
      if (frame > last_fetch_ + 40) {
        camera.requestSpatialMapAsync();
        requested_ = true;
      }
    } else if (camera.getSpatialMapRequestStatusAsync() == pv::ERROR_CODE::SUCCESS) {
      (void)camera.retrieveSpatialMapAsync(kept);
      last_fetch_ = frame;
      requested_ = false;
    }
  }

 private:
  bool requested_ = false;
  int last_fetch_ = 0;
};

std::string open(pv::Camera& camera, const LongScanOptions& o) {
  setenv("PAVO_VIRTUAL_CAMERA", o.recording.c_str(), 1);
  unsetenv("PAVO_VIRTUAL_CAMERA_OPTIONS");
  if (pv::Camera::getDeviceList().empty()) return "the virtual camera does not list " + o.recording;
  pv::InitParameters init;
  init.camera_resolution = pv::RESOLUTION::HD720;
  init.camera_fps = 60;
  init.depth_mode = o.depth_mode;
  init.depth_minimum_distance = 0.5f;
  init.coordinate_units = pv::UNIT::METER;
  init.coordinate_system = pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;
  if (camera.open(init) != pv::ERROR_CODE::SUCCESS)
    return std::string("the virtual camera does not open: ") + pv::lastErrorDetail().c_str();
  pv::PositionalTrackingParameters tracking;
  tracking.enable_area_memory = true;
  if (camera.enablePositionalTracking(tracking) != pv::ERROR_CODE::SUCCESS)
    return std::string("tracking: ") + pv::lastErrorDetail().c_str();
  pv::SpatialMappingParameters mapping;
  mapping.resolution_meter = o.resolution_m;
  mapping.range_meter = pv::SpatialMappingParameters::getRecommendedRange(o.resolution_m, camera);
  mapping.save_texture = o.texture;
  mapping.use_chunk_only = true;
  mapping.max_memory_usage = o.memory_mb;
  mapping.map_type = pv::SPATIAL_MAP_TYPE::MESH;
  if (camera.enableSpatialMapping(mapping) != pv::ERROR_CODE::SUCCESS)
    return std::string("mapping: ") + pv::lastErrorDetail().c_str();
  return std::string();
}

}  // namespace

LongScanResult runLongScan(const LongScanOptions& o, const std::function<void(const LongScanSample&)>& on_sample) {
  LongScanResult result;
  pv::Camera camera;
  result.error = open(camera, o);
  if (!result.error.empty()) return result;

  const pv::RuntimeParameters runtime(pv::SENSING_MODE::STANDARD, true, 100, 100, pv::REFERENCE_FRAME::CAMERA, true);
  const pv::Resolution size = camera.getCameraInformation().camera_configuration.resolution;
  pv::Mat image, second;
  (void)image.alloc(size, pv::MAT_TYPE::U8_C4, pv::MEM::GPU);
  (void)second.alloc(size, pv::MAT_TYPE::U8_C4, pv::MEM::GPU);
  pv::Mesh kept;
  pv::Pose pose;
  MapFetcher fetcher;

  const Clock::time_point start = Clock::now();
  const Clock::time_point end =
      start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(o.minutes * 60.0));
  Clock::time_point next_sample = start;
  LongScanSample last;
  double last_cpu = cpuSeconds();
  double grab_ms_max = 0;
  int frames = 0;
  for (;;) {
    const Clock::time_point now = Clock::now();
    if (now >= next_sample) {
      LongScanSample s;
      s.t_s = seconds(now - start);
      s.frames = frames;
      s.rss_mb = residentMb();
      s.heap_mb = heapInUseMb();
      readModules(camera, s);
      s.chunks = kept.chunks.size();
      const double cpu = cpuSeconds();
      const int new_frames = frames - last.frames;
      s.fps = s.t_s > last.t_s ? new_frames / (s.t_s - last.t_s) : 0;
      s.cpu_ms = new_frames > 0 ? 1000.0 * (cpu - last_cpu) / new_frames : 0;
      s.grab_ms_max = grab_ms_max;
      s.memory_full = camera.getSpatialMappingState() == pv::SPATIAL_MAPPING_STATE::NOT_ENOUGH_MEMORY;
      if (s.memory_full && result.budget_reached_s < 0) result.budget_reached_s = s.t_s;
      result.samples.push_back(s);
      if (on_sample) on_sample(s);
      last = s;
      last_cpu = cpu;
      grab_ms_max = 0;
      next_sample += std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(o.sample_every_s));
      if (now >= end) break;
    }
    const Clock::time_point grab_start = Clock::now();
    const pv::ERROR_CODE err = camera.grab(runtime);
    grab_ms_max = std::max(grab_ms_max, 1000.0 * seconds(Clock::now() - grab_start));
    if (err == pv::ERROR_CODE::CAMERA_NOT_DETECTED) {
      result.error = "the virtual camera was lost";
      break;
    }
    if (err != pv::ERROR_CODE::SUCCESS) continue;
    ++frames;
    (void)camera.getPosition(pose, pv::REFERENCE_FRAME::WORLD);
    if (frames % 5 == 0) {
      (void)camera.retrieveImage(image, pv::VIEW::LEFT, pv::MEM::GPU, size);
      (void)camera.retrieveImage(second, pv::VIEW::TRACKING, pv::MEM::GPU, size);
    }
    fetcher.step(camera, frames, kept);
  }
  camera.disableSpatialMapping();
  camera.disablePositionalTracking();
  camera.close();
  return result;
}

GrowthVerdict judgeGrowthAfterBudget(const LongScanResult& result, double settle_s, double limit_mb, double min_tau) {
  GrowthVerdict v;
  std::vector<const LongScanSample*> window;
  if (result.budget_reached_s >= 0)
    for (const LongScanSample& s : result.samples)
      if (s.t_s >= result.budget_reached_s + settle_s) window.push_back(&s);
  v.samples = int(window.size());
  char text[256];
  if (window.size() < 5) {
    std::snprintf(text, sizeof text, "not judged: %d samples after the budget was reached (at %.0f s) and settled",
                  v.samples, result.budget_reached_s);
    v.text = text;
    return v;
  }
  v.judged = true;
  v.window_min = (window.back()->t_s - window.front()->t_s) / 60.0;
  std::vector<double> slopes;
  int rising = 0, falling = 0;
  for (size_t i = 0; i < window.size(); ++i)
    for (size_t j = i + 1; j < window.size(); ++j) {
      const double d = window[j]->rss_mb - window[i]->rss_mb;
      slopes.push_back(d / ((window[j]->t_s - window[i]->t_s) / 60.0));
      rising += d > 0;
      falling += d < 0;
    }
  std::nth_element(slopes.begin(), slopes.begin() + long(slopes.size() / 2), slopes.end());
  v.slope_mb_per_min = slopes[slopes.size() / 2];
  v.growth_mb = v.slope_mb_per_min * v.window_min;
  v.tau = double(rising - falling) / double(slopes.size());
  v.steady_growth = v.growth_mb > limit_mb && v.tau >= min_tau;
  std::snprintf(text, sizeof text,
                "%s: %d samples over %.1f min after the budget was reached at %.0f s: RSS %+.2f MB/min (%+.1f MB "
                "over the window, limit %.0f MB), Kendall tau %.2f",
                v.steady_growth ? "STEADY GROWTH" : "levels off", v.samples, v.window_min, result.budget_reached_s,
                v.slope_mb_per_min, v.growth_mb, limit_mb, v.tau);
  v.text = text;
  return v;
}

std::string formatSample(const LongScanSample& s, bool header) {
  char line[320];
  std::snprintf(line, sizeof line, "%7.0f %8d %8.1f %7.1f %7.1f %8zu %6zu %8zu %6zu %8zu %6zu %6.1f %7.1f %7.0f %s",
                s.t_s, s.frames, s.rss_mb, s.heap_mb, s.map_mb, s.blocks, s.chunks, s.tracked, s.keyframes, s.landmarks,
                s.texture_images, s.fps, s.cpu_ms, s.grab_ms_max, s.memory_full ? "full" : "-");
  const std::string row(line);
  if (!header) return row;
  return "    t_s   frames   rss_mb heap_mb  map_mb   blocks chunks  tracked kfrms  lndmrks images    fps  cpu_ms "
         "grab_ms "
         "budget\n" +
         row;
}

}  // namespace mapura::bench

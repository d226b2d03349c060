// Stereo depth behind pv::Camera: the per-grab step, the measures and the depth views.
#include <cstring>
#include <new>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "core/internal/camera_state.h"
#include "core/internal/coordinates.h"
#include "core/internal/error.h"
#include "depth/internal/depth_module.h"
#include "pv/camera.h"

namespace pv {

using internal::fail;

namespace internal {

ERROR_CODE DepthModule::step(CameraState& state, const RuntimeParameters& runtime) {
  state.depth = DepthData();
  const FrameData& frame = state.frame;
  const RectifiedCalibration& calib = state.calibration;
  if (frame.left_gray.empty() || frame.right_gray.empty() || frame.left_gray.size() != frame.right_gray.size())
    return fail(ERROR_CODE::CORRUPTED_FRAME, "depth needs a rectified grey pair of one size");
  if (!(calib.fx > 0) || !(calib.baseline_m > 0))
    return fail(ERROR_CODE::INVALID_CALIBRATION_FILE, "depth needs a positive focal length and baseline");

  const InitParameters& init = state.init_parameters;
  const float to_metres = 1.f / metresTo(init.coordinate_units);
  DepthFilterParameters filter;
  filter.min_depth_m = init.depth_minimum_distance * to_metres;
  filter.max_depth_m = init.depth_maximum_distance * to_metres;
  filter.confidence_threshold = runtime.confidence_threshold;
  filter.texture_confidence_threshold = runtime.texture_confidence_threshold;
  filter.remove_saturated_areas = runtime.remove_saturated_areas;
  filter.fill = runtime.sensing_mode == SENSING_MODE::FILL;

  StereoParameters stereo_params;
  stereo_params.mode = mode_;
  stereo_params.with_texture_confidence = false;  // computed by the filters only when a threshold needs it
  stereo_params.half_size_output = true;          // the filters double it row by row
  stereo_params.max_disparity_px = std::min(disparityRangeFor(calib, filter.min_depth_m), frame.left_gray.cols);
  StereoOutput stereo;
  std::string error;
  if (!computeStereo(frame.left_gray, frame.right_gray, stereo_params, stereo, error))
    return fail(ERROR_CODE::FAILURE, error);
  last_elapsed_ms_ = stereo.elapsed_ms;
  frame_index_ = frame.index;
  frame_timestamp_ns_ = frame.timestamp_ns;
  state.depth = filterToDepth(std::move(stereo), frame.left_gray, calib.fx, calib.baseline_m, filter);
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE checkDepthParameters(const CameraState& state, const RuntimeParameters& runtime) {
  if (!runtime.enable_depth || state.init_parameters.depth_mode == DEPTH_MODE::NONE) return ERROR_CODE::SUCCESS;
  ModeRecipe recipe;
  if (!recipeFor(state.init_parameters.depth_mode, recipe))
    return fail(ERROR_CODE::AI_MODEL_NOT_AVAILABLE, "this depth mode has no engine in this build");
  if (runtime.confidence_threshold < 1 || runtime.confidence_threshold > 100 ||
      runtime.texture_confidence_threshold < 1 || runtime.texture_confidence_threshold > 100)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "confidence thresholds must lie within 1..100");
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE depthStep(CameraState& state, const RuntimeParameters& runtime) {
  state.depth = DepthData();
  if (!runtime.enable_depth || state.init_parameters.depth_mode == DEPTH_MODE::NONE) return ERROR_CODE::SUCCESS;
  const ERROR_CODE checked = checkDepthParameters(state, runtime);
  if (checked != ERROR_CODE::SUCCESS) return checked;
  try {
    if (!state.depth_module || state.depth_module->mode() != state.init_parameters.depth_mode)
      state.depth_module = std::make_shared<DepthModule>(state.init_parameters.depth_mode);
    return state.depth_module->step(state, runtime);
  } catch (const cv::Exception& e) {
    state.depth = DepthData();
    return fail(ERROR_CODE::FAILURE, std::string("depth failed: ") + e.what());
  } catch (const std::bad_alloc&) {
    state.depth = DepthData();
    return fail(ERROR_CODE::NOT_ENOUGH_MEMORY, "depth ran out of memory");
  }
}

namespace {
// Depth of the last grab, not a leftover of an earlier one.
bool hasCurrentDepth(const CameraState& state) {
  return state.depth.valid && !state.depth.depth_m.empty() && state.depth_module &&
         state.depth_module->computedFor(state.frame);
}
}  // namespace

ERROR_CODE depthView(const CameraState& state, VIEW view, cv::Mat& bgra) {
  if (view != VIEW::DEPTH && view != VIEW::DEPTH_COLOR)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "not a depth view");
  if (!hasCurrentDepth(state))
    return fail(ERROR_CODE::MODULE_NOT_ENABLED, "no depth for the last grab (depth disabled or mode NONE)");
  try {
    bgra = drawDepth(state.depth.depth_m, view == VIEW::DEPTH_COLOR);
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::FAILURE, std::string("depth view failed: ") + e.what());
  }
  return ERROR_CODE::SUCCESS;
}

namespace {

// Position and colour of each pixel, F32_C4: x, y, z in the chosen system and unit, colour packed
// as 0xAARRGGBB bits in w. NaN position where there is no depth.
cv::Mat pointCloud(const CameraState& state) {
  const cv::Mat& depth = state.depth.depth_m;
  const RectifiedCalibration& c = state.calibration;
  const Eigen::Matrix3f basis = basisFromImage(state.init_parameters.coordinate_system);
  const float scale = metresTo(state.init_parameters.coordinate_units);
  const cv::Mat& colour = state.frame.left_bgr;
  const bool has_colour = colour.type() == CV_8UC3 && colour.size() == depth.size();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  cv::Mat out(depth.size(), CV_32FC4);
  for (int v = 0; v < depth.rows; ++v) {
    const float* z = depth.ptr<float>(v);
    cv::Vec4f* p = out.ptr<cv::Vec4f>(v);
    for (int u = 0; u < depth.cols; ++u) {
      uint32_t packed = 0xff000000u;
      if (has_colour) {
        const cv::Vec3b bgr = colour.at<cv::Vec3b>(v, u);
        packed |= (uint32_t(bgr[2]) << 16) | (uint32_t(bgr[1]) << 8) | bgr[0];
      }
      float w;
      std::memcpy(&w, &packed, sizeof w);
      if (!(z[u] == z[u])) {
        p[u] = cv::Vec4f(nan, nan, nan, w);
        continue;
      }
      const Eigen::Vector3f q = basis *
                                Eigen::Vector3f(static_cast<float>((u - c.cx) / c.fx) * z[u],
                                                static_cast<float>((v - c.cy) / c.fy) * z[u], z[u]) *
                                scale;
      p[u] = cv::Vec4f(q.x(), q.y(), q.z(), w);
    }
  }
  return out;
}

// Copies `src` (CV_32FC1 or CV_32FC4) into `dst`, reusing its memory when it already fits.
ERROR_CODE writeMeasure(const cv::Mat& src, Mat& dst, MEM mem) {
  const MAT_TYPE type = src.channels() == 4 ? MAT_TYPE::F32_C4 : MAT_TYPE::F32_C1;
  const Resolution size(static_cast<size_t>(src.cols), static_cast<size_t>(src.rows));
  const bool want_cpu = mem == MEM::CPU || mem == MEM::BOTH;
  const bool want_gpu = mem == MEM::GPU || mem == MEM::BOTH;
  const MEM held = dst.getMemoryType();
  const bool fits = dst.isInit() && dst.getWidth() == size.width && dst.getHeight() == size.height &&
                    dst.getDataType() == type && (!want_cpu || held == MEM::CPU || held == MEM::BOTH) &&
                    (!want_gpu || held == MEM::GPU || held == MEM::BOTH);
  if (!fits) {
    const ERROR_CODE err = dst.alloc(size, type, mem);
    if (err != ERROR_CODE::SUCCESS) return err;
  }
  const Mat view(size, type, const_cast<unsigned char*>(src.data), src.step, MEM::CPU);
  if (want_cpu) {
    const ERROR_CODE err = view.copyTo(dst, COPY_TYPE::CPU_CPU);
    if (err != ERROR_CODE::SUCCESS) return err;
  }
  if (want_gpu) return view.copyTo(dst, COPY_TYPE::CPU_GPU);
  return ERROR_CODE::SUCCESS;
}

}  // namespace
}  // namespace internal

ERROR_CODE Camera::retrieveMeasure(Mat& mat, MEASURE measure, MEM mem, Resolution resolution) {
  const internal::CameraState& state = *state_;
  if (!state.opened) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "retrieveMeasure on a closed camera");
  if (mem != MEM::CPU && mem != MEM::GPU && mem != MEM::BOTH)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown memory type");
  if (!internal::hasCurrentDepth(state))
    return fail(ERROR_CODE::MODULE_NOT_ENABLED, "no depth for the last grab (depth disabled or mode NONE)");
  const cv::Size native = state.depth.depth_m.size();
  cv::Size size = native;
  if (resolution.width != 0 || resolution.height != 0) {
    if (resolution.width == 0 || resolution.height == 0 || resolution.width > size_t(native.width) ||
        resolution.height > size_t(native.height))
      return fail(ERROR_CODE::INVALID_RESOLUTION, "a measure's resolution must lie within 1x1 and the native size");
    size = cv::Size(static_cast<int>(resolution.width), static_cast<int>(resolution.height));
  }
  try {
    cv::Mat full;
    switch (measure) {
      case MEASURE::DEPTH:
        full = state.depth.depth_m * internal::metresTo(state.init_parameters.coordinate_units);
        break;
      case MEASURE::CONFIDENCE: full = state.depth.confidence; break;
      case MEASURE::DISPARITY: full = state.depth.disparity_px * (double(size.width) / native.width); break;
      case MEASURE::XYZRGBA: full = internal::pointCloud(state); break;
      default: return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "unknown measure");
    }
    cv::Mat sized = full;
    if (size != native) cv::resize(full, sized, size, 0, 0, cv::INTER_NEAREST);
    if (!sized.isContinuous()) sized = sized.clone();
    return internal::writeMeasure(sized, mat, mem);
  } catch (const cv::Exception& e) {
    return fail(ERROR_CODE::FAILURE, std::string("retrieveMeasure failed: ") + e.what());
  } catch (const std::bad_alloc&) {
    return fail(ERROR_CODE::NOT_ENOUGH_MEMORY, "retrieveMeasure ran out of memory");
  }
}

}  // namespace pv

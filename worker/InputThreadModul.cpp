// Camera connection and the scan loop of the mapping worker.
#include "InputThreadModul.h"

#include <QDateTime>
#include <QMetaType>
#include <QThread>
#include <QtConcurrent/QtConcurrent>
#include <iostream>

#include "ProgramStates.h"
#include "core/internal/gpu_memory.h"

namespace {

// Runtime parameters of every grab: standard sensing, depth on, all confidences kept, motion in
// the camera frame, saturated areas removed.
pv::RuntimeParameters scanRuntimeParameters() {
  return pv::RuntimeParameters(pv::SENSING_MODE::STANDARD, true, 100, 100, pv::REFERENCE_FRAME::CAMERA, true);
}

constexpr int kFramesBetweenMapRequests = 40;
constexpr int kImageEvery = 5;

}  // namespace

InputThreadModul::InputThreadModul() {
  qRegisterMetaType<float*>("float*");
  mapping_parameters_ = pv::SpatialMappingParameters();
}

InputThreadModul::~InputThreadModul() {
  running_ = false;
  camera_.close();
}

int InputThreadModul::initPAVO(bool live) {
  if (live) {
    if (pv::Camera::getDeviceList().empty()) return -1;
    init_parameters_.camera_resolution = pv::RESOLUTION::HD720;
    init_parameters_.camera_fps = 60;
  } else {
    const QByteArray path = ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH).value().toUtf8();
    init_parameters_.input.setFromKTRFile(pv::String(path.constData()));
    ktr_input_ = true;
  }
  init_parameters_.depth_mode = static_cast<pv::DEPTH_MODE>(ProgramStates::getIntAttr(ProgramStates::DEPTH_MODE));
  init_parameters_.depth_minimum_distance = 0.5f;
  init_parameters_.coordinate_units = pv::UNIT::METER;
  init_parameters_.coordinate_system = pv::COORDINATE_SYSTEM::RIGHT_HANDED_Y_UP;

  const pv::ERROR_CODE result = camera_.open(init_parameters_);
  ktr_frame_count_ = camera_.getKTRNumberOfFrames();
  camera_information_ = camera_.getCameraInformation();
  serial_number_ = static_cast<int>(camera_information_.serial_number);
  return static_cast<int>(result);
}

int InputThreadModul::init() {
  cuda_context_ = camera_.getCUDAContext();
  pv::internal::makeContextCurrent(cuda_context_);
  const pv::Resolution res = camera_information_.camera_configuration.resolution;
  const size_t w = std::min<size_t>(res.width, 1280);
  const size_t h = std::min<size_t>(res.height, 720);
  (void)frame_buffer_.alloc(w, 2 * h, pv::MAT_TYPE::U8_C4, pv::MEM::GPU);

  unsigned char* base = frame_buffer_.getPtr<unsigned char>(pv::MEM::GPU);
  const size_t step = frame_buffer_.getStepBytes(pv::MEM::GPU);
  image_view_ = pv::Mat(pv::Resolution(w, h), pv::MAT_TYPE::U8_C4, base, step, pv::MEM::GPU);
  unsigned char* lower = base;
  const size_t pixel_bytes = pv::getPixelBytes(frame_buffer_.getDataType());
  if (pixel_bytes > 0) {
    lower = base + h * step;
  } else {
    std::cout << "Type: " << pv::toString(frame_buffer_.getDataType()).c_str() << " Not Supported" << std::endl;
  }
  second_view_ = pv::Mat(pv::Resolution(w, h), pv::MAT_TYPE::U8_C4, lower, step, pv::MEM::GPU);

  map_request_state_ = 0;
  buffers_allocated_ = true;
  position_changed_ = true;
  state_ = PREVIEW;
  return 0;
}

void InputThreadModul::askSetPosition(int frame) {
  if (state_ != PREVIEW) return;
  start_frame_ = frame;
  position_changed_ = true;
  camera_.setKTRPosition(frame);
}

void InputThreadModul::destruct() {
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 0);
  running_ = false;
  state_ = IDLE;
  QThread::msleep(5);
  if (post_processing_running_) abort_post_processing_ = true;
  // The step in progress may still grab into the frame buffer's views or start a retrieval;
  // then a retrieval running on the pool must end before the map goes away.
  while (in_loop_) QThread::msleep(1);
  while (map_request_state_ == 2) QThread::msleep(10);
  QThread::msleep(5);
  if (buffers_allocated_) frame_buffer_.free(pv::MEM::BOTH);
}

void InputThreadModul::work() {
  if (!running_) return;
  in_loop_ = true;
  while (running_) {
    if (camera_.isOpened()) {
      switch (state_.load()) {
        case PREVIEW: vizuInit(); break;
        case START_SCAN: initScan(); break;
        case OFFLINE_PREPROCESSING: processOffline(); break;
        case RESTART_AFTER_PREPROCESSING: processOfflineRestart(); break;
        case SCANNING: process(); break;
        case END_OF_SCAN:
          endProcess();
          state_ = POST_PROCESSING;
          break;
        case POST_PROCESSING:
          postProcess();
          state_ = IDLE;
          break;
        default: break;
      }
    }
    QThread::msleep(1);
  }
  in_loop_ = false;
}

void InputThreadModul::vizuInit() {
  bool grabbed = false;
  if (ktr_input_) {
    // Cleared before the grab: a seek asked for while it runs gets a grab of its own.
    if (position_changed_.exchange(false)) grabbed = camera_.grab(scanRuntimeParameters()) == pv::ERROR_CODE::SUCCESS;
  } else {
    grabbed = camera_.grab(scanRuntimeParameters()) == pv::ERROR_CODE::SUCCESS;
  }
  if (grabbed) {
    (void)camera_.retrieveImage(image_view_, pv::VIEW::LEFT, pv::MEM::GPU, image_view_.getResolution());
    (void)camera_.retrieveImage(second_view_, pv::VIEW::DEPTH_COLOR, pv::MEM::GPU, second_view_.getResolution());
  }
  emit sendViewImage();
  QThread::msleep(5);
}

void InputThreadModul::startScan(float range, float resolution, int filterLevel, bool fusedPointCloud, int maxMemory) {
  if (!(range > 0.f)) range = pv::SpatialMappingParameters::getRecommendedRange(resolution, camera_);
  mapping_parameters_.resolution_meter = resolution;
  mapping_parameters_.range_meter = range;
  mapping_parameters_.save_texture = ProgramStates::getBoolAttr(ProgramStates::APPLY_TEXTURE);
  mapping_parameters_.use_chunk_only = true;
  mapping_parameters_.max_memory_usage = maxMemory;
  mapping_parameters_.map_type = fusedPointCloud ? pv::SPATIAL_MAP_TYPE::FUSED_POINT_CLOUD : pv::SPATIAL_MAP_TYPE::MESH;
  mesh_filter_level_ = filterLevel;
  fused_point_cloud_mode_ = fusedPointCloud;

  QString name;
  if (ktr_input_) {
    name = ProgramStates::qstringAttr(ProgramStates::KTR_FILE_PATH).value();
    const int dot = name.lastIndexOf('.');
    if (dot >= 0) name = name.left(dot);
    name = name.mid(name.lastIndexOf('/') + 1);
  } else {
    name = "Live_" + QString::number(serial_number_);
  }
  const QDateTime now = QDateTime::currentDateTime();
  name += "_" + now.toString("dd-MM-yyyy") + "-" + now.toString("hh-mm");
  ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR) =
      ProgramStates::qstringAttr(ProgramStates::MESHES_DIR) + "/" + name + "/";

  frame_counter_ = 0;
  last_map_frame_ = 0;
  second_view_is_tracking_ = false;
  state_ = START_SCAN;
}

void InputThreadModul::initScan() {
  // The preview's grab has moved the recording past the frame it shows: the scan starts with
  // that frame, the one the slider names.
  if (ktr_input_) camera_.setKTRPosition(start_frame_);
  pv::PositionalTrackingParameters tracking;
  tracking.enable_area_memory = true;
  (void)camera_.enablePositionalTracking(tracking);
  ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, true);
  if (ProgramStates::getBoolAttr(ProgramStates::OFFLINE_MODE)) {
    state_ = OFFLINE_PREPROCESSING;
    return;
  }
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
  (void)camera_.enableSpatialMapping(mapping_parameters_);
  state_ = SCANNING;
}

void InputThreadModul::retrieveViewImages() {
  (void)camera_.retrieveImage(image_view_, pv::VIEW::LEFT, pv::MEM::GPU, image_view_.getResolution());
  if (tracking_state_ == static_cast<int>(pv::POSITIONAL_TRACKING_STATE::OK)) {
    (void)camera_.retrieveImage(second_view_, pv::VIEW::TRACKING, pv::MEM::GPU, second_view_.getResolution());
    second_view_is_tracking_ = true;
  } else if (tracking_state_ == static_cast<int>(pv::POSITIONAL_TRACKING_STATE::SEARCHING) &&
             second_view_is_tracking_) {
    (void)camera_.retrieveImage(second_view_, pv::VIEW::LEFT, pv::MEM::GPU, second_view_.getResolution());
    second_view_is_tracking_ = false;
  }
  emit sendViewImage();
}

void InputThreadModul::process() {
  const pv::ERROR_CODE result = camera_.grab(scanRuntimeParameters());
  bool finished = false;
  if (result == pv::ERROR_CODE::END_OF_KTR_FILE_REACHED && ktr_input_) {
    end_code_ = END_OF_RECORDING;
    finished = true;
  } else if (result == pv::ERROR_CODE::CAMERA_NOT_DETECTED) {
    end_code_ = CAMERA_DISCONNECTED;
    finished = true;
  } else if (result != pv::ERROR_CODE::SUCCESS) {
    if (end_code_ == END_BY_USER) return;
    finished = true;
  }

  if (!finished) {
    ++frame_counter_;
    pv::Pose pose;
    const pv::POSITIONAL_TRACKING_STATE tracking = camera_.getPosition(pose, pv::REFERENCE_FRAME::WORLD);
    tracking_state_ = static_cast<int>(tracking);
    // While searching the pose is only a guess: the path and the view stay where the camera was
    // last measured.
    const bool measured =
        tracking == pv::POSITIONAL_TRACKING_STATE::OK || tracking == pv::POSITIONAL_TRACKING_STATE::FPS_TOO_LOW;
    if (measured) {
      std::lock_guard<std::mutex> lock(pose_mutex_);
      pose_ = pose;
    }
    if (frame_counter_ % kImageEvery == 0) retrieveViewImages();

    switch (map_request_state_.load()) {
      case 0:
        if (ProgramStates::getBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED) &&
            frame_counter_ > last_map_frame_ + kFramesBetweenMapRequests) {
          camera_.requestSpatialMapAsync();
          ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, false);
          map_request_state_ = 1;
        }
        break;
      case 1:
        if (camera_.getSpatialMapRequestStatusAsync() == pv::ERROR_CODE::SUCCESS) {
          map_request_state_ = 2;
          (void)QtConcurrent::run(this, &InputThreadModul::retrieveMesh);
        }
        break;
      default: break;
    }

    if (camera_.getSpatialMappingState() == pv::SPATIAL_MAPPING_STATE::NOT_ENOUGH_MEMORY) end_code_ = MEMORY_FULL;
    emit sendIncrementKTRPos();
    emit sendTrackStatus(tracking_state_);
    if (measured) emit sendPath(pose_.pose_data.m);
    if (end_code_ == END_BY_USER) return;
  }
  // Idle before the report: the controller answers autoEnd by asking for the end of the scan,
  // which must not be overwritten.
  state_ = IDLE;
  emit autoEnd();
}

void InputThreadModul::retrieveMesh() {
  std::lock_guard<std::mutex> lock(map_mutex_);
  if (fused_point_cloud_mode_)
    (void)camera_.retrieveSpatialMapAsync(fused_point_cloud_);
  else
    (void)camera_.retrieveSpatialMapAsync(mesh_);
  last_map_frame_ = frame_counter_.load();
  map_request_state_ = 0;
  ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
}

// Offline pre-processing of recordings and the end-of-scan extraction, filtering, texturing and
// export of the mapping worker.
#include <QDebug>
#include <QDir>
#include <QThread>

#include "InputThreadModul.h"
#include "ProgramStates.h"

namespace {

pv::RuntimeParameters offlineRuntimeParameters() {
  return pv::RuntimeParameters(pv::SENSING_MODE::STANDARD, true, 100, 100, pv::REFERENCE_FRAME::CAMERA, true);
}

pv::String utf8(const QString& path) { return pv::String(path.toUtf8().constData()); }

// The flow goes on whatever a save returns (the result is reopened from the file and a file that
// cannot be read is reported then); the log keeps the reason.
void logIfNotSaved(bool saved, const QString& path) {
  if (!saved) qWarning("Cannot save %s: %s", qPrintable(path), pv::lastErrorDetail().c_str());
}

}  // namespace

void InputThreadModul::processOffline() {
  const pv::ERROR_CODE result = camera_.grab(offlineRuntimeParameters());
  if (result == pv::ERROR_CODE::END_OF_KTR_FILE_REACHED) {
    state_ = RESTART_AFTER_PREPROCESSING;
    return;
  }
  if (result != pv::ERROR_CODE::SUCCESS) return;
  ++frame_counter_;
  if (frame_counter_ % 5 == 0) {
    (void)camera_.retrieveImage(image_view_, pv::VIEW::LEFT, pv::MEM::GPU, image_view_.getResolution());
    (void)camera_.retrieveImage(second_view_, pv::VIEW::TRACKING, pv::MEM::GPU, second_view_.getResolution());
    emit sendViewImage();
  }
  if (frame_counter_ % 30 == 0) QThread::msleep(15);
  const float percent = float(frame_counter_) / float(ktr_frame_count_) * 100.f;
  emit updatePreProcess(static_cast<int>(percent));
}

void InputThreadModul::processOfflineRestart() {
  for (int i = 0; i < 10; ++i) QThread::msleep(20);
  (void)camera_.saveAreaMap("Foo.ogt");
  camera_.disablePositionalTracking("");
  camera_.setKTRPosition(0);
  pv::PositionalTrackingParameters tracking;
  tracking.enable_area_memory = false;
  (void)camera_.enablePositionalTracking(tracking);
  ProgramStates::setIntAttr(ProgramStates::VIEW_CONTENT, 1);
  ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, true);
  // The offset tells the SDK to fuse at the poses refined by the pre-processing pass.
  mapping_parameters_.map_type = static_cast<pv::SPATIAL_MAP_TYPE>(static_cast<int>(mapping_parameters_.map_type) + 5);
  (void)camera_.enableSpatialMapping(mapping_parameters_);
  frame_counter_ = 0;
  last_map_frame_ = 0;
  end_code_ = END_BY_USER;
  emit preprocessEnd();
  state_ = SCANNING;
}

void InputThreadModul::endProcess() {
  ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) =
      fused_point_cloud_mode_ ? "Extracting fused point cloud..." : "Extracting mesh...";
  emit theEnd(end_code_);
  {
    std::lock_guard<std::mutex> lock(map_mutex_);
    if (fused_point_cloud_mode_)
      (void)camera_.extractWholeSpatialMap(fused_point_cloud_);
    else
      (void)camera_.extractWholeSpatialMap(mesh_);
  }
  ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, false);
  ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
  camera_.disableSpatialMapping();
  camera_.disablePositionalTracking("");
}

bool InputThreadModul::waitForMapRequestAllowed() {
  while (!ProgramStates::getBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED)) {
    // A reset while waiting must not leave the worker thread blocked for ever.
    if (aborted()) return false;
    QThread::msleep(1);
  }
  return true;
}

void InputThreadModul::postProcess() {
  post_processing_running_ = true;
  const QString out_dir = ProgramStates::qstringAttr(ProgramStates::SCAN_OUTPUT_DIR);
  QDir(QDir::rootPath()).mkpath(out_dir);

  if (!waitForMapRequestAllowed()) return;
  ProgramStates::setBoolAttr(ProgramStates::MAP_REQUEST_ALLOWED, false);

  if (fused_point_cloud_mode_) {
    if (fused_point_cloud_.getNumberOfPoints() > 0) {
      const QString path = out_dir + "fused_point_cloud.ply";
      logIfNotSaved(fused_point_cloud_.save(utf8(path), pv::MESH_FILE_FORMAT::PLY), path);
      emit sendEnd(false);
      return;
    }
  } else if (mesh_.getNumberOfTriangles() > 0) {
    if (ProgramStates::getBoolAttr(ProgramStates::SAVE_RAW_MESH))
      logIfNotSaved(mesh_.save(utf8(out_dir + "mesh_raw.ply"), pv::MESH_FILE_FORMAT::PLY), out_dir + "mesh_raw.ply");
    ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = "Filtering mesh ...";
    if (abort_post_processing_) return;
    if (mesh_filter_level_ != kNoFilter) {
      std::lock_guard<std::mutex> lock(map_mutex_);
      const auto level = static_cast<pv::MeshFilterParameters::MESH_FILTER>(mesh_filter_level_);
      (void)mesh_.filter(pv::MeshFilterParameters(level), false);
    }
    ProgramStates::setBoolAttr(ProgramStates::MAP_UPDATE_READY, true);
    if (!waitForMapRequestAllowed()) return;
    if (abort_post_processing_) return;
    bool textured = ProgramStates::getBoolAttr(ProgramStates::APPLY_TEXTURE);
    if (textured) {
      ProgramStates::qstringAttr(ProgramStates::STATUS_TEXT) = "Texturing mesh ...";
      {
        std::lock_guard<std::mutex> lock(map_mutex_);
        textured = mesh_.applyTexture(pv::MESH_TEXTURE_FORMAT::RGB);
      }
      if (abort_post_processing_) return;
      // Without a texture (every keyframe refused by the memory budget, say) the mesh is the
      // untextured result: saved and shown as such.
      if (!textured) qWarning().noquote() << "Texturing failed:" << pv::lastErrorDetail().c_str();
    }
    if (textured) {
      logIfNotSaved(mesh_.save(utf8(out_dir + "mesh.obj"), pv::MESH_FILE_FORMAT::OBJ), out_dir + "mesh.obj");
    } else {
      logIfNotSaved(mesh_.save(utf8(out_dir + "mesh.ply"), pv::MESH_FILE_FORMAT::PLY), out_dir + "mesh.ply");
    }
    if (abort_post_processing_) return;
    emit sendEnd(textured);
    return;
  }
  emit sendResetNeeded();
  post_processing_running_ = false;
}

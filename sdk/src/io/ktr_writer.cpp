// Writing KTR recordings through libavformat/libavcodec.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "core/internal/error.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_libav.h"
#include "mesh/internal/file_util.h"

namespace pv::internal {

namespace {

// Value of the frame-count tag until the recording is finished; overwritten in place by a
// number of the same width, so a file cut off before the end keeps it and is recognised.
constexpr const char kUnfinishedCount[] = "unfinished";
constexpr size_t kCountWidth = sizeof(kUnfinishedCount) - 1;

// Finds the placeholder in the file's head or tail and writes `count` over it.
bool patchFrameCount(const std::string& path, int count) {
  FILE* f = std::fopen(path.c_str(), "r+b");
  if (!f) return false;
  char digits[kCountWidth + 1];
  std::snprintf(digits, sizeof(digits), "%0*d", int(kCountWidth), count);
  std::fseek(f, 0, SEEK_END);
  const long size = std::ftell(f);
  const long windows[2][2] = {{0, std::min(size, 4L << 20)}, {std::max(0L, size - (1L << 20)), size}};
  bool done = false;
  for (const auto& w : windows) {
    std::vector<char> buf(size_t(w[1] - w[0]));
    std::fseek(f, w[0], SEEK_SET);
    if (std::fread(buf.data(), 1, buf.size(), f) != buf.size()) break;
    auto it = std::search(buf.begin(), buf.end(), kUnfinishedCount, kUnfinishedCount + kCountWidth);
    if (it == buf.end()) continue;
    std::fseek(f, w[0] + long(it - buf.begin()), SEEK_SET);
    done = std::fwrite(digits, 1, kCountWidth, f) == kCountWidth;
    break;
  }
  return std::fclose(f) == 0 && done;
}

}  // namespace

const char* ktrCodecName(KTR_COMPRESSION_MODE mode) {
  switch (mode) {
    case KTR_COMPRESSION_MODE::LOSSLESS: return "ffv1";
    case KTR_COMPRESSION_MODE::MJPEG: return "mjpeg";
    default: return "h264";
  }
}

bool ktrCompressionFromName(const std::string& name, KTR_COMPRESSION_MODE& mode) {
  for (KTR_COMPRESSION_MODE m :
       {KTR_COMPRESSION_MODE::H264, KTR_COMPRESSION_MODE::LOSSLESS, KTR_COMPRESSION_MODE::MJPEG})
    if (name == ktrCodecName(m)) {
      mode = m;
      return true;
    }
  return false;
}

struct KtrWriter::Impl {
  std::string path;    // the file being written
  std::string target;  // its final name: the same, or an earlier recording replaced at close
  AVFormatContext* fmt = nullptr;
  AVCodecContext* enc = nullptr;
  AVStream* stream = nullptr;
  SwsContext* sws = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  cv::Mat padded;  // odd sizes: the frame grown to the coded size
  KtrMetadata metadata;
  int frames = 0;
  int64_t last_pts = -1;
  bool header_written = false;

  ERROR_CODE drain() {
    for (;;) {
      int r = avcodec_receive_packet(enc, packet);
      if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return ERROR_CODE::SUCCESS;
      if (r < 0) return fail(ERROR_CODE::KTR_RECORDING_ERROR, "encoder failed: " + avError(r));
      av_packet_rescale_ts(packet, enc->time_base, stream->time_base);
      packet->stream_index = stream->index;
      r = av_interleaved_write_frame(fmt, packet);
      if (r < 0) return fail(ERROR_CODE::KTR_RECORDING_ERROR, "cannot write to " + path + ": " + avError(r));
    }
  }

  void release() {
    sws_freeContext(sws);
    sws = nullptr;
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&enc);
    if (fmt) {
      if (fmt->pb) avio_closep(&fmt->pb);
      avformat_free_context(fmt);
      fmt = nullptr;
    }
    header_written = false;
  }

  // Gives up a recording that cannot be finished: an earlier recording it was to replace stays
  // as it was, and a file holding no frame is not left behind.
  void abandon() {
    const bool nothing_recorded = !header_written || frames == 0;
    release();
    if (path != target || (nothing_recorded && !writeTargetFor(path).in_place)) std::remove(path.c_str());
  }
};

KtrWriter::KtrWriter() : impl_(std::make_unique<Impl>()) {}
KtrWriter::~KtrWriter() { close(); }
bool KtrWriter::isOpen() const { return impl_->fmt != nullptr; }
int KtrWriter::framesWritten() const { return impl_->frames; }

ERROR_CODE KtrWriter::open(const std::string& path, const KtrMetadata& metadata, KTR_COMPRESSION_MODE mode) {
  quietLibav();
  close();
  Impl& s = *impl_;
  s = Impl();
  // A recording is written under its own name, so that one cut off by a crash keeps every
  // complete frame there; one that replaces an earlier recording is written beside it and
  // renamed over it only once it is complete.
  const WriteTarget target = writeTargetFor(path);
  std::error_code exists_error;
  s.target = target.path;
  s.path = !target.in_place && std::filesystem::exists(target.path, exists_error) ? temporaryPathBeside(target.path)
                                                                                  : target.path;
  s.metadata = metadata;
  if (metadata.width < 16 || metadata.height < 16 || metadata.fps <= 0)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "a recording needs a size of at least 16x16 and a rate");
  const AVCodec* codec = nullptr;
  AVPixelFormat pix = AV_PIX_FMT_YUV420P;
  if (mode == KTR_COMPRESSION_MODE::LOSSLESS) {
    codec = avcodec_find_encoder(AV_CODEC_ID_FFV1);
    pix = AV_PIX_FMT_0RGB32;
  } else if (mode == KTR_COMPRESSION_MODE::MJPEG) {
    codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    pix = AV_PIX_FMT_YUVJ420P;
  } else {
    codec = avcodec_find_encoder_by_name("libx264");
    if (!codec) codec = avcodec_find_encoder(AV_CODEC_ID_H264);
  }
  if (!codec) return fail(ERROR_CODE::UNSUPPORTED_KTR_CODEC, std::string("no encoder for ") + ktrCodecName(mode));

  if (avformat_alloc_output_context2(&s.fmt, nullptr, "matroska", s.path.c_str()) < 0 || !s.fmt)
    return fail(ERROR_CODE::KTR_RECORDING_ERROR, "cannot create a Matroska muxer");
  s.stream = avformat_new_stream(s.fmt, nullptr);
  s.enc = avcodec_alloc_context3(codec);
  s.frame = av_frame_alloc();
  s.packet = av_packet_alloc();
  if (!s.stream || !s.enc || !s.frame || !s.packet) {
    s.release();
    return fail(ERROR_CODE::NOT_ENOUGH_MEMORY, "cannot allocate the encoder");
  }
  s.enc->width = 2 * ktrCodedSize(metadata.width);
  s.enc->height = ktrCodedSize(metadata.height);
  s.enc->pix_fmt = pix;
  s.enc->time_base = AVRational{1, 1000};
  s.enc->framerate = av_d2q(metadata.fps, 100000);
  s.enc->gop_size = std::max(1, int(metadata.fps + 0.5));
  s.enc->max_b_frames = 0;  // decode order is frame order: the index maps packets to frames
  if (s.fmt->oformat->flags & AVFMT_GLOBALHEADER) s.enc->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* opts = nullptr;
  if (mode == KTR_COMPRESSION_MODE::H264) {
    av_dict_set(&opts, "preset", "veryfast", 0);
    av_dict_set(&opts, "crf", "16", 0);
  } else if (mode == KTR_COMPRESSION_MODE::MJPEG) {
    s.enc->flags |= AV_CODEC_FLAG_QSCALE;
    s.enc->global_quality = FF_QP2LAMBDA * 3;
  } else {
    av_dict_set(&opts, "level", "3", 0);
    av_dict_set(&opts, "slices", "4", 0);
    av_dict_set(&opts, "slicecrc", "1", 0);
  }
  int r = avcodec_open2(s.enc, codec, &opts);
  av_dict_free(&opts);
  if (r < 0) {
    s.release();
    return fail(ERROR_CODE::UNSUPPORTED_KTR_CODEC,
                std::string("cannot open the ") + ktrCodecName(mode) + " encoder: " + avError(r));
  }
  avcodec_parameters_from_context(s.stream->codecpar, s.enc);
  s.stream->time_base = s.enc->time_base;
  av_dict_set(&s.stream->metadata, "title", "left|right", 0);

  // The pavo.json attachment.
  const std::string json = writeKtrMetadata(metadata);
  AVStream* att = avformat_new_stream(s.fmt, nullptr);
  if (!att || json.empty()) {
    s.release();
    return fail(ERROR_CODE::KTR_RECORDING_ERROR, "cannot add the pavo.json attachment");
  }
  att->codecpar->codec_type = AVMEDIA_TYPE_ATTACHMENT;
  att->codecpar->codec_id = AV_CODEC_ID_NONE;
  att->codecpar->extradata = static_cast<uint8_t*>(av_mallocz(json.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  std::memcpy(att->codecpar->extradata, json.data(), json.size());
  att->codecpar->extradata_size = int(json.size());
  av_dict_set(&att->metadata, "filename", "pavo.json", 0);
  av_dict_set(&att->metadata, "mimetype", "application/json", 0);
  av_dict_set(&s.fmt->metadata, kFrameCountTag, kUnfinishedCount, 0);
  av_dict_set(&s.fmt->metadata, "encoder_pavo", "PAVO SDK", 0);

  r = avio_open(&s.fmt->pb, s.path.c_str(), AVIO_FLAG_WRITE);
  if (r < 0) {
    s.release();
    return fail(ERROR_CODE::FILE_IO_ERROR, "cannot create " + path + ": " + avError(r));
  }
  AVDictionary* mux_opts = nullptr;
  av_dict_set(&mux_opts, "write_crc32", "0", 0);  // the frame-count tag is patched in place
  r = avformat_write_header(s.fmt, &mux_opts);
  av_dict_free(&mux_opts);
  if (r < 0) {
    s.abandon();
    return fail(ERROR_CODE::KTR_RECORDING_ERROR, "cannot write the header of " + path + ": " + avError(r));
  }
  s.header_written = true;
  s.sws = sws_getContext(s.enc->width, s.enc->height, AV_PIX_FMT_BGR24, s.enc->width, s.enc->height, pix,
                         SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr);
  s.frame->format = pix;
  s.frame->width = s.enc->width;
  s.frame->height = s.enc->height;
  if (!s.sws || av_frame_get_buffer(s.frame, 0) < 0) {
    s.abandon();
    return fail(ERROR_CODE::NOT_ENOUGH_MEMORY, "cannot allocate the conversion to the codec's format");
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE KtrWriter::write(const cv::Mat& image, int64_t timestamp_ns) {
  Impl& s = *impl_;
  if (!s.fmt) return fail(ERROR_CODE::KTR_RECORDING_ERROR, "the recording is not open");
  const int w = s.metadata.width, h = s.metadata.height;
  if (image.type() != CV_8UC3 || image.cols != 2 * w || image.rows != h)
    return fail(ERROR_CODE::INVALID_FUNCTION_PARAMETERS, "the frame does not match the recording's size");
  if (av_frame_make_writable(s.frame) < 0) return fail(ERROR_CODE::NOT_ENOUGH_MEMORY, "cannot reuse the frame");
  const cv::Mat* coded = &image;
  if (s.enc->width != image.cols || s.enc->height != image.rows) {
    // Odd sizes: each eye grows by its last column and row to the codec's even size.
    const int eye_w = s.enc->width / 2;
    s.padded.create(s.enc->height, s.enc->width, CV_8UC3);
    for (int eye = 0; eye < 2; ++eye) {
      cv::Mat dst = s.padded(cv::Rect(eye * eye_w, 0, eye_w, s.enc->height));
      cv::copyMakeBorder(image(cv::Rect(eye * w, 0, w, h)), dst, 0, s.enc->height - h, 0, eye_w - w,
                         cv::BORDER_REPLICATE);
    }
    coded = &s.padded;
  }
  const uint8_t* src[1] = {coded->data};
  const int src_stride[1] = {int(coded->step)};
  sws_scale(s.sws, src, src_stride, 0, coded->rows, s.frame->data, s.frame->linesize);
  int64_t pts = std::max<int64_t>(0, (timestamp_ns - s.metadata.time_origin_ns + 500000) / 1000000);
  if (pts <= s.last_pts) pts = s.last_pts + 1;
  s.last_pts = pts;
  s.frame->pts = pts;
  int r = avcodec_send_frame(s.enc, s.frame);
  if (r < 0) return fail(ERROR_CODE::KTR_RECORDING_ERROR, "encoder refused a frame: " + avError(r));
  ERROR_CODE err = s.drain();
  if (err == ERROR_CODE::SUCCESS) ++s.frames;
  return err;
}

ERROR_CODE KtrWriter::close() {
  Impl& s = *impl_;
  if (!s.fmt) return ERROR_CODE::SUCCESS;
  ERROR_CODE err = ERROR_CODE::SUCCESS;
  if (s.header_written) {
    avcodec_send_frame(s.enc, nullptr);
    err = s.drain();
    const int r = av_write_trailer(s.fmt);
    if (r < 0 && err == ERROR_CODE::SUCCESS)
      err = fail(ERROR_CODE::KTR_RECORDING_ERROR, "cannot finish " + s.path + ": " + avError(r));
  }
  const bool finished = s.header_written && err == ERROR_CODE::SUCCESS;
  if (!finished) {
    s.abandon();
    return err;
  }
  s.release();
  if (!patchFrameCount(s.path, s.frames)) {
    err = fail(ERROR_CODE::FILE_IO_ERROR, "cannot write the frame count into " + s.path);
    if (s.path != s.target) std::remove(s.path.c_str());
  } else if (s.path != s.target && std::rename(s.path.c_str(), s.target.c_str()) != 0) {
    err = fail(ERROR_CODE::FILE_IO_ERROR, "cannot replace " + s.target + ": " + std::strerror(errno));
    std::remove(s.path.c_str());
  }
  return err;
}

}  // namespace pv::internal

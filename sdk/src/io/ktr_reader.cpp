// Reading KTR recordings: indexing every complete packet at open, exact seeking by decoding
// forward from the nearest key frame.
#include <algorithm>
#include <map>
#include <vector>

#include "core/internal/error.h"
#include "io/internal/ktr_file.h"
#include "io/internal/ktr_libav.h"

namespace pv::internal {

namespace {

struct PacketEntry {
  int64_t pts = 0;
  bool key = false;
};

}  // namespace

struct KtrReader::Impl {
  std::string path;
  AVFormatContext* fmt = nullptr;
  AVCodecContext* dec = nullptr;
  AVPacket* packet = nullptr;
  AVFrame* frame = nullptr;
  SwsContext* sws = nullptr;
  cv::Mat coded;  // odd sizes: the decoded frame with its padding
  int stream = -1;
  KtrMetadata metadata;
  std::vector<PacketEntry> index;
  std::map<int64_t, int> frame_of_pts;
  int tagged_count = -1;
  int next = 0;          // frame the next read returns
  int decoder_next = 0;  // frame the decoder yields next when fed from where it stands
  bool demux_eof = false;
  bool bgra = false;

  void release() {
    sws_freeContext(sws);
    sws = nullptr;
    av_frame_free(&frame);
    av_packet_free(&packet);
    avcodec_free_context(&dec);
    avformat_close_input(&fmt);
    index.clear();
    frame_of_pts.clear();
    stream = -1;
  }

  // Puts the decoder on the key frame at or before `target`.
  bool seekTo(int target) {
    int key = target;
    while (key > 0 && !index[size_t(key)].key) --key;
    int r = av_seek_frame(fmt, stream, index[size_t(key)].pts, AVSEEK_FLAG_BACKWARD);
    if (r < 0) r = avformat_seek_file(fmt, stream, INT64_MIN, index[size_t(key)].pts, index[size_t(key)].pts, 0);
    avcodec_flush_buffers(dec);
    demux_eof = false;
    decoder_next = key;
    return r >= 0;
  }

  // Next decoded frame in presentation order; its index through the pts map.
  // Returns 0 on a frame, AVERROR_EOF at the end, another negative number on damage.
  int decodeNext(int& frame_index) {
    for (;;) {
      int r = avcodec_receive_frame(dec, frame);
      if (r == 0) {
        const int64_t pts = frame->best_effort_timestamp != AV_NOPTS_VALUE ? frame->best_effort_timestamp : frame->pts;
        auto it = frame_of_pts.find(pts);
        frame_index = it != frame_of_pts.end() ? it->second : decoder_next;
        decoder_next = frame_index + 1;
        return 0;
      }
      if (r == AVERROR_EOF) return AVERROR_EOF;
      if (r != AVERROR(EAGAIN)) return r;
      if (demux_eof) return AVERROR_EOF;
      r = av_read_frame(fmt, packet);
      if (r < 0) {
        demux_eof = true;
        avcodec_send_packet(dec, nullptr);
        continue;
      }
      if (packet->stream_index == stream) {
        const int64_t pts = packet->pts;
        r = avcodec_send_packet(dec, packet);
        av_packet_unref(packet);
        if (r < 0 && r != AVERROR(EAGAIN)) {
          auto it = frame_of_pts.find(pts);
          frame_index = it != frame_of_pts.end() ? it->second : decoder_next;
          decoder_next = frame_index + 1;
          return r;
        }
      } else {
        av_packet_unref(packet);
      }
    }
  }
};

KtrReader::KtrReader() : impl_(std::make_unique<Impl>()) {}
KtrReader::~KtrReader() { close(); }
void KtrReader::close() { impl_->release(); }
bool KtrReader::isOpen() const { return impl_->fmt != nullptr; }
const KtrMetadata& KtrReader::metadata() const { return impl_->metadata; }
int KtrReader::frameCount() const { return int(impl_->index.size()); }
int KtrReader::taggedFrameCount() const { return impl_->tagged_count; }
int KtrReader::position() const { return impl_->next; }
std::string KtrReader::codecName() const { return impl_->dec ? std::string(impl_->dec->codec->name) : std::string(); }
void KtrReader::setBgraOutput(bool bgra) { impl_->bgra = bgra; }
void KtrReader::seek(int index) { impl_->next = std::clamp(index, 0, frameCount()); }

ERROR_CODE KtrReader::open(const std::string& path) {
  quietLibav();
  close();
  Impl& s = *impl_;
  s.path = path;
  s.next = 0;
  s.tagged_count = -1;
  int r = avformat_open_input(&s.fmt, path.c_str(), nullptr, nullptr);
  if (r < 0) {
    s.fmt = nullptr;
    if (r == AVERROR(ENOENT)) return fail(ERROR_CODE::INVALID_KTR_FILE, path + " does not exist");
    return fail(ERROR_CODE::INVALID_KTR_FILE, path + " is not a recording (" + avError(r) + ")");
  }
  const std::string format = s.fmt->iformat ? s.fmt->iformat->name : "";
  if (format.find("matroska") == std::string::npos) {
    s.release();
    return fail(ERROR_CODE::INVALID_KTR_FILE, path + " is not a Matroska file");
  }
  if (avformat_find_stream_info(s.fmt, nullptr) < 0) {
    s.release();
    return fail(ERROR_CODE::INVALID_KTR_FILE, path + ": the streams cannot be read");
  }
  // The attachment and the video stream.
  const AVStream* attachment = nullptr;
  for (unsigned i = 0; i < s.fmt->nb_streams; ++i) {
    const AVStream* st = s.fmt->streams[i];
    if (st->codecpar->codec_type == AVMEDIA_TYPE_ATTACHMENT) {
      const AVDictionaryEntry* name = av_dict_get(st->metadata, "filename", nullptr, 0);
      if (name && std::string(name->value) == "pavo.json") attachment = st;
    } else if (st->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && s.stream < 0) {
      s.stream = int(i);
    }
  }
  if (!attachment || attachment->codecpar->extradata_size <= 0) {
    s.release();
    return fail(ERROR_CODE::INVALID_KTR_FILE, path + " has no pavo.json attachment: not a KTR recording");
  }
  if (s.stream < 0) {
    s.release();
    return fail(ERROR_CODE::INVALID_KTR_FILE, path + " has no video stream");
  }
  const std::string json(reinterpret_cast<const char*>(attachment->codecpar->extradata),
                         size_t(attachment->codecpar->extradata_size));
  ERROR_CODE err = parseKtrMetadata(json, s.metadata);
  if (err != ERROR_CODE::SUCCESS) {
    const std::string why = lastErrorDetail().str();
    s.release();
    return fail(err, path + ": " + why.substr(why.find(": ") + 2));
  }
  const AVCodecParameters* par = s.fmt->streams[s.stream]->codecpar;
  if (par->width != 2 * ktrCodedSize(s.metadata.width) || par->height != ktrCodedSize(s.metadata.height)) {
    s.release();
    return fail(ERROR_CODE::INVALID_KTR_FILE, path + ": the video size does not match pavo.json");
  }
  const AVCodec* codec = avcodec_find_decoder(par->codec_id);
  if (!codec ||
      (par->codec_id != AV_CODEC_ID_H264 && par->codec_id != AV_CODEC_ID_FFV1 && par->codec_id != AV_CODEC_ID_MJPEG)) {
    const std::string name = avcodec_get_name(par->codec_id);
    s.release();
    return fail(ERROR_CODE::UNSUPPORTED_KTR_CODEC, path + ": codec " + name + " is not supported");
  }
  s.dec = avcodec_alloc_context3(codec);
  s.packet = av_packet_alloc();
  s.frame = av_frame_alloc();
  if (!s.dec || !s.packet || !s.frame || avcodec_parameters_to_context(s.dec, par) < 0) {
    s.release();
    return fail(ERROR_CODE::NOT_ENOUGH_MEMORY, "cannot allocate the decoder");
  }
  s.dec->thread_count = 0;  // as many as there are cores
  s.dec->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
  s.dec->pkt_timebase = s.fmt->streams[s.stream]->time_base;
  if ((r = avcodec_open2(s.dec, codec, nullptr)) < 0) {
    s.release();
    return fail(ERROR_CODE::UNSUPPORTED_KTR_CODEC, path + ": cannot open the decoder: " + avError(r));
  }
  if (const AVDictionaryEntry* tag = av_dict_get(s.fmt->metadata, kFrameCountTag, nullptr, 0)) {
    char* end = nullptr;
    const long v = std::strtol(tag->value, &end, 10);
    if (end != tag->value && *end == '\0' && v >= 0) s.tagged_count = int(v);
  }
  // Index every complete packet: decode order is frame order (no frame reordering in KTR).
  while ((r = av_read_frame(s.fmt, s.packet)) >= 0) {
    if (s.packet->stream_index == s.stream && !(s.packet->flags & AV_PKT_FLAG_CORRUPT) &&
        s.packet->pts != AV_NOPTS_VALUE) {
      if (s.index.empty() || s.packet->pts > s.index.back().pts) {
        s.frame_of_pts[s.packet->pts] = int(s.index.size());
        s.index.push_back({s.packet->pts, (s.packet->flags & AV_PKT_FLAG_KEY) != 0});
      }
    }
    av_packet_unref(s.packet);
  }
  if (s.index.empty()) {
    s.release();
    return fail(ERROR_CODE::INVALID_KTR_FILE, path + " holds no complete frame");
  }
  s.index[0].key = true;  // decoding always starts at the first packet
  if (!s.seekTo(0)) {
    s.release();
    return fail(ERROR_CODE::INVALID_KTR_FILE, path + " cannot be rewound");
  }
  return ERROR_CODE::SUCCESS;
}

ERROR_CODE KtrReader::read(cv::Mat& out, int64_t& timestamp_ns, int& index) {
  Impl& s = *impl_;
  if (!s.fmt) return fail(ERROR_CODE::CAMERA_NOT_INITIALIZED, "no recording is open");
  const int target = s.next;
  if (target >= frameCount()) return fail(ERROR_CODE::END_OF_KTR_FILE_REACHED, "end of the recording");
  if (s.decoder_next != target) s.seekTo(target);
  for (;;) {
    int got = -1;
    const int r = s.decodeNext(got);
    if (r == AVERROR_EOF) {
      s.next = target + 1;
      return fail(ERROR_CODE::CORRUPTED_FRAME, "frame " + std::to_string(target) + " cannot be decoded");
    }
    if (got < target) continue;  // on the way from the key frame
    if (r < 0 || got > target) {
      s.next = target + 1;
      if (got > target) s.seekTo(target + 1);
      return fail(ERROR_CODE::CORRUPTED_FRAME, "frame " + std::to_string(target) + " is damaged");
    }
    break;
  }
  AVFrame* f = s.frame;
  const int w = s.metadata.width, h = s.metadata.height;
  if (f->decode_error_flags || (f->flags & AV_FRAME_FLAG_CORRUPT) || f->width != 2 * ktrCodedSize(w) ||
      f->height != ktrCodedSize(h)) {
    av_frame_unref(f);
    s.next = target + 1;
    return fail(ERROR_CODE::CORRUPTED_FRAME, "frame " + std::to_string(target) + " is damaged");
  }
  s.sws = sws_getCachedContext(s.sws, f->width, f->height, AVPixelFormat(f->format), f->width, f->height,
                               s.bgra ? AV_PIX_FMT_BGRA : AV_PIX_FMT_BGR24, SWS_BILINEAR, nullptr, nullptr, nullptr);
  if (!s.sws) return fail(ERROR_CODE::FAILURE, "cannot convert the decoded frame");
  const int type = s.bgra ? CV_8UC4 : CV_8UC3;
  const bool padded = f->width != 2 * w || f->height != h;
  cv::Mat& coded = padded ? s.coded : out;
  coded.create(f->height, f->width, type);
  uint8_t* dst[1] = {coded.data};
  const int dst_stride[1] = {int(coded.step)};
  sws_scale(s.sws, f->data, f->linesize, 0, f->height, dst, dst_stride);
  if (padded) {
    // Odd sizes: the eyes without the columns and rows that only the codec needed.
    out.create(h, 2 * w, type);
    for (int eye = 0; eye < 2; ++eye)
      coded(cv::Rect(eye * (f->width / 2), 0, w, h)).copyTo(out(cv::Rect(eye * w, 0, w, h)));
  }
  timestamp_ns = s.metadata.time_origin_ns + s.index[size_t(target)].pts * 1000000;
  index = target;
  s.next = target + 1;
  av_frame_unref(f);
  return ERROR_CODE::SUCCESS;
}

}  // namespace pv::internal

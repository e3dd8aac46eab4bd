#include "nvrhost/FileSource.h"

#include <algorithm>
#include <array>

#include "hostkit/Codecs.h"
#include "nvrhost/Adts.h"
#include "nvrhost/Ffmpeg.h"
#include "nvrhost/PictureTypes.h"

namespace nvrhost {
namespace {

constexpr AVRational kMicroseconds{1, 1'000'000};

struct Known {
  AVCodecID id;
  int codec;
  const char* filter;  // bitstream filter, or null
};
constexpr std::array<Known, 5> kVideo{{
    {AV_CODEC_ID_H264, hostkit::kH264, "h264_mp4toannexb"},
    {AV_CODEC_ID_HEVC, hostkit::kH265, "hevc_mp4toannexb"},
    {AV_CODEC_ID_MPEG2VIDEO, hostkit::kMpeg2, nullptr},
    {AV_CODEC_ID_MPEG4, hostkit::kMpeg4, "dump_extra"},
    {AV_CODEC_ID_MJPEG, hostkit::kMjpeg, nullptr},
}};
constexpr std::array<Known, 5> kAudio{{
    {AV_CODEC_ID_PCM_MULAW, hostkit::kG711Ulaw, nullptr},
    {AV_CODEC_ID_PCM_ALAW, hostkit::kG711Alaw, nullptr},
    {AV_CODEC_ID_AAC, hostkit::kAac, nullptr},
    {AV_CODEC_ID_MP2, hostkit::kMpegAudio, nullptr},
    {AV_CODEC_ID_MP3, hostkit::kMpegAudio, nullptr},
}};

const Known* Find(const std::array<Known, 5>& table, AVCodecID id) {
  const auto* const found =
      std::find_if(table.begin(), table.end(), [&](const Known& row) { return row.id == id; });
  return found == table.end() ? nullptr : found;
}

// One stream of the file on its way into a track.
class StreamReader {
 public:
  StreamReader(const AVStream& stream, const Known& known, Track& target)
      : track(target),
        parameters(*stream.codecpar),
        timeBase(stream.time_base),
        types(stream.codecpar->codec_id) {
    track.codec = known.codec;
    const AVRational rate = stream.avg_frame_rate;
    frameUs =
        rate.num > 0 && rate.den > 0 ? av_rescale_q(1, av_inv_q(rate), kMicroseconds) : 40'000;
    if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
      track.sampleRate = parameters.sample_rate;
      track.samplesPerFrame = std::max(parameters.frame_size, 0);
      if (track.sampleRate > 0 && track.samplesPerFrame > 0) {
        frameUs = 1'000'000LL * track.samplesPerFrame / track.sampleRate;
      }
      adts = parameters.codec_id == AV_CODEC_ID_AAC && parameters.extradata_size > 0;
    } else {
      track.width = parameters.width;
      track.height = parameters.height;
    }
    if (known.filter != nullptr) OpenFilter(known.filter, stream);
  }

  // Where in the file's own time the packet lies, in microseconds.
  [[nodiscard]] std::int64_t TimeOf(const AVPacket& packet) const {
    const std::int64_t stamp = packet.dts != AV_NOPTS_VALUE ? packet.dts : packet.pts;
    if (stamp != AV_NOPTS_VALUE) return av_rescale_q(stamp, timeBase, kMicroseconds);
    return track.Empty() ? originUs : originUs + track.frames.back().timeUs + frameUs;
  }
  void Begin(std::int64_t timeUs) { originUs = timeUs; }

  void Take(AVPacket& packet) {
    if (!filter) {
      Append(packet);
      return;
    }
    Check(av_bsf_send_packet(filter.get(), &packet), filter->filter->name);
    for (;;) {
      const int result = av_bsf_receive_packet(filter.get(), &packet);
      if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
      Check(result, filter->filter->name);
      Append(packet);
      av_packet_unref(&packet);
    }
  }

  [[nodiscard]] std::int64_t EndUs() const {
    return track.Empty() ? 0 : track.frames.back().timeUs + frameUs;
  }

 private:
  void OpenFilter(const char* name, const AVStream& stream) {
    const auto* found = CheckMade(av_bsf_get_by_name(name),
                                  std::string("this FFmpeg has no bitstream filter ") + name);
    AVBSFContext* made = nullptr;
    Check(av_bsf_alloc(found, &made), name);
    filter.reset(made);
    Check(avcodec_parameters_copy(filter->par_in, stream.codecpar), name);
    filter->time_base_in = stream.time_base;
    Check(av_bsf_init(filter.get()), name);
  }

  void Append(const AVPacket& packet) {
    const auto payload =
        std::as_bytes(std::span(packet.data, static_cast<std::size_t>(packet.size)));
    if (payload.empty()) return;
    // An encoder never delivers a frame before the one it delivered last.
    std::int64_t timeUs = std::max<std::int64_t>(TimeOf(packet) - originUs, 0);
    if (!track.Empty()) timeUs = std::max(timeUs, track.frames.back().timeUs);
    if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
      track.Append(payload, timeUs, types.TypeOf(packet));
    } else if (adts) {
      track.Append(
          WithAdtsHeader(payload, parameters.sample_rate, parameters.ch_layout.nb_channels), timeUs,
          KELVO_FRAME_AUDIO);
    } else {
      track.Append(payload, timeUs, KELVO_FRAME_AUDIO);
    }
  }

  Track& track;
  const AVCodecParameters& parameters;
  AVRational timeBase;
  PictureTypes types;
  BitstreamFilterPtr filter;
  std::int64_t originUs = 0;
  std::int64_t frameUs = 0;
  bool adts = false;
};

InputPtr Open(const std::string& path) {
  AVFormatContext* opened = nullptr;
  Check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "FFmpeg can't open " + path);
  InputPtr input(opened);
  Check(avformat_find_stream_info(input.get(), nullptr), "FFmpeg can't read " + path);
  return input;
}

// How much of a file is wanted.
struct Limit {
  std::int64_t us;
  std::size_t bytes;
};

// From the first I frame to the end of the file, or to the first I frame past a limit.
void ReadPackets(AVFormatContext& input, int videoIndex, StreamReader& video, int audioIndex,
                 StreamReader* audio, const Limit& limit, LoadedFile& result) {
  const PacketPtr packet(CheckMade(av_packet_alloc(), "out of memory"));
  std::int64_t beginUs = 0;
  bool begun = false;
  for (; av_read_frame(&input, packet.get()) >= 0; av_packet_unref(packet.get())) {
    if (packet->stream_index == videoIndex) {
      const bool key = (packet->flags & AV_PKT_FLAG_KEY) != 0;
      if (!begun && key) {
        begun = true;
        beginUs = video.TimeOf(*packet);
        video.Begin(beginUs);
        if (audio != nullptr) audio->Begin(beginUs);
      }
      if (key && video.EndUs() > limit.us) return;
      if (key && result.clip.video.bytes.size() + result.clip.audio.bytes.size() > limit.bytes) {
        result.notice += result.notice.empty() ? "" : "; ";
        result.notice +=
            "only its first " + std::to_string(video.EndUs() / 1'000'000) + " s are used";
        return;
      }
      if (begun) video.Take(*packet);
    } else if (audio != nullptr && begun && packet->stream_index == audioIndex &&
               audio->TimeOf(*packet) >= beginUs) {
      audio->Take(*packet);
    }
  }
}

}  // namespace

LoadedFile LoadFile(const std::string& path, bool withAudio, double seconds, std::size_t maxBytes) {
  const auto input = Open(path);
  LoadedFile result;
  const int videoIndex = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (videoIndex < 0) throw std::runtime_error(path + " holds no video");
  const AVStream& videoStream = *input->streams[videoIndex];
  const auto* const videoKnown = Find(kVideo, videoStream.codecpar->codec_id);
  if (videoKnown == nullptr) {
    throw std::runtime_error(path + ": video of codec " +
                             avcodec_get_name(videoStream.codecpar->codec_id) +
                             " can't be passed on");
  }
  StreamReader video(videoStream, *videoKnown, result.clip.video);

  std::unique_ptr<StreamReader> audio;
  const int audioIndex =
      withAudio ? av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, videoIndex, nullptr, 0)
                : -1;
  if (audioIndex >= 0) {
    const AVStream& stream = *input->streams[audioIndex];
    if (const auto* const known = Find(kAudio, stream.codecpar->codec_id)) {
      audio = std::make_unique<StreamReader>(stream, *known, result.clip.audio);
    } else {
      result.notice = std::string("its audio (") + avcodec_get_name(stream.codecpar->codec_id) +
                      ") is left out";
    }
  }

  ReadPackets(*input, videoIndex, video, audioIndex, audio.get(),
              {static_cast<std::int64_t>(seconds * 1e6), maxBytes}, result);
  if (result.clip.video.Empty()) throw std::runtime_error(path + " holds no video frames");
  const std::int64_t durationUs = std::max(video.EndUs(), audio ? audio->EndUs() : 0);
  result.clip.video.durationUs = durationUs;
  result.clip.audio.durationUs = durationUs;
  return result;
}

}  // namespace nvrhost

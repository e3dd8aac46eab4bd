#include "nvrhost/EncodedLoop.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>

#include "hostkit/Codecs.h"
#include "nvrhost/Adts.h"
#include "nvrhost/Ffmpeg.h"
#include "nvrhost/FilterSource.h"
#include "nvrhost/PictureTypes.h"

namespace nvrhost {
namespace {

struct VideoEncoder {
  int codec;
  const char* name;
  AVPixelFormat pixels;
  int kilobits;  // what suits VGA
};
constexpr std::array<VideoEncoder, 4> kVideoEncoders{{
    {hostkit::kH264, "libx264", AV_PIX_FMT_YUV420P, 1500},
    {hostkit::kH265, "libx265", AV_PIX_FMT_YUV420P, 1000},
    {hostkit::kMpeg2, "mpeg2video", AV_PIX_FMT_YUV420P, 3000},
    {hostkit::kMjpeg, "mjpeg", AV_PIX_FMT_YUVJ420P, 6000},
}};

constexpr std::array<const char*, 6> kPatterns{
    "testsrc2=", "mandelbrot=", "gradients=", "sierpinski=", "testsrc=", "cellauto=",
};

const VideoEncoder& FindVideoEncoder(int codec) {
  for (const auto& encoder : kVideoEncoders) {
    if (encoder.codec == codec) return encoder;
  }
  throw std::runtime_error("no encoder for codec number " + std::to_string(codec));
}

CodecPtr NewEncoder(const char* name) {
  const auto* codec = CheckMade(avcodec_find_encoder_by_name(name),
                                std::string("this FFmpeg has no encoder ") + name);
  return CodecPtr(CheckMade(avcodec_alloc_context3(codec), "out of memory"));
}

FilterSource NewPicture(const VideoSettings& settings, AVRational rate, AVPixelFormat pixels) {
  const auto patternCount = static_cast<int>(kPatterns.size());
  const std::string source =
      std::string(kPatterns[static_cast<std::size_t>(settings.pattern % patternCount)]) +
      "s=" + std::to_string(settings.width) + "x" + std::to_string(settings.height) +
      ":r=" + std::to_string(rate.num) + "/" + std::to_string(rate.den) +
      ",hue=h=" + std::to_string(settings.pattern / patternCount * 67 % 360);
  const std::string end = std::string(",format=") + av_get_pix_fmt_name(pixels);
  if (!settings.label.empty()) {
    const int size = std::max(settings.height / 16, 10);
    try {
      return {source + ",drawtext=text='" + settings.label +
                  "  %{pts\\:hms}':fontcolor=white:box=1:boxcolor=black@0.6:x=8:y=8:fontsize=" +
                  std::to_string(size) + end,
              AVMEDIA_TYPE_VIDEO};
    } catch (const std::runtime_error&) {
      // No drawtext or no font in this FFmpeg: the picture goes without its name.
    }
  }
  return {source + end, AVMEDIA_TYPE_VIDEO};
}

// Feeds `count` frames and the end to an encoder; hands each packet on.
void Encode(AVCodecContext& encoder, FilterSource& source, int count,
            const std::function<void(const AVPacket&)>& take) {
  const std::string what = std::string("encoder ") + encoder.codec->name;
  const PacketPtr packet(CheckMade(av_packet_alloc(), "out of memory"));
  std::int64_t pts = 0;
  for (int index = 0; index <= count; ++index) {
    AVFrame* frame = nullptr;
    if (index < count) {
      frame = source.Next();
      frame->pts = pts;
      frame->pict_type = AV_PICTURE_TYPE_NONE;
      pts += encoder.codec_type == AVMEDIA_TYPE_AUDIO ? frame->nb_samples : 1;
    }
    Check(avcodec_send_frame(&encoder, frame), what);
    for (;;) {
      const int result = avcodec_receive_packet(&encoder, packet.get());
      if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) break;
      Check(result, what);
      take(*packet);
      av_packet_unref(packet.get());
    }
  }
}

// Groups of exactly `group` frames, none of which needs another group.
void SetUpGroups(AVCodecContext& encoder, const VideoSettings& settings) {
  encoder.gop_size = settings.group;
  encoder.keyint_min = settings.group;
  encoder.max_b_frames = std::min(settings.bFrames, std::max(settings.group - 2, 0));
  encoder.flags |= AV_CODEC_FLAG_CLOSED_GOP;
  const std::string group = std::to_string(settings.group);
  switch (settings.codec) {
    case hostkit::kH264:
      av_opt_set(encoder.priv_data, "preset", "veryfast", 0);
      av_opt_set(encoder.priv_data, "sc_threshold", "0", 0);
      break;
    case hostkit::kH265:
      av_opt_set(encoder.priv_data, "preset", "ultrafast", 0);
      av_opt_set(encoder.priv_data, "x265-params",
                 ("log-level=error:open-gop=0:scenecut=0:min-keyint=" + group).c_str(), 0);
      break;
    case hostkit::kMpeg2:
      av_opt_set_int(encoder.priv_data, "sc_threshold", 1'000'000'000, 0);
      break;
    default:
      encoder.flags &= ~AV_CODEC_FLAG_CLOSED_GOP;
      encoder.gop_size = 1;
      encoder.max_b_frames = 0;
      break;
  }
}

std::span<const std::byte> BytesOf(const AVPacket& packet) {
  return std::as_bytes(std::span(packet.data, static_cast<std::size_t>(packet.size)));
}

}  // namespace

Track EncodeVideo(const VideoSettings& settings) {
  const auto& choice = FindVideoEncoder(settings.codec);
  const AVRational rate = av_d2q(settings.fps, 60'000);
  auto picture = NewPicture(settings, rate, choice.pixels);
  const auto encoder = NewEncoder(choice.name);
  encoder->width = settings.width;
  encoder->height = settings.height;
  encoder->pix_fmt = choice.pixels;
  encoder->time_base = av_inv_q(rate);
  encoder->framerate = rate;
  encoder->bit_rate = 1000LL * (settings.kilobits > 0 ? settings.kilobits : choice.kilobits);
  SetUpGroups(*encoder, settings);
  Check(avcodec_open2(encoder.get(), nullptr, nullptr), std::string("encoder ") + choice.name);

  Track track;
  track.codec = settings.codec;
  track.width = settings.width;
  track.height = settings.height;
  PictureTypes types(encoder->codec_id);
  const auto timeOf = [&](std::size_t frames) {
    return av_rescale_q(static_cast<std::int64_t>(frames), encoder->time_base, {1, 1'000'000});
  };
  const int groups = static_cast<int>(std::ceil(settings.seconds * settings.fps / settings.group));
  Encode(*encoder, picture, std::max(groups, 1) * settings.group, [&](const AVPacket& packet) {
    track.Append(BytesOf(packet), timeOf(track.frames.size()), types.TypeOf(packet));
  });
  track.durationUs = timeOf(track.frames.size());
  return track;
}

Track EncodeAudio(int codec, double seconds, int pitchHz) {
  const bool aac = codec == hostkit::kAac;
  Track track;
  track.codec = codec;
  track.sampleRate = aac ? 16'000 : 8'000;
  FilterSource sound("sine=beep_factor=4:frequency=" + std::to_string(pitchHz) +
                         ":sample_rate=" + std::to_string(track.sampleRate) +
                         (aac ? ",aformat=sample_fmts=fltp" : ",aformat=sample_fmts=s16"),
                     AVMEDIA_TYPE_AUDIO);
  const auto encoder = NewEncoder(aac ? "aac" : "pcm_mulaw");
  encoder->sample_fmt = aac ? AV_SAMPLE_FMT_FLTP : AV_SAMPLE_FMT_S16;
  encoder->sample_rate = track.sampleRate;
  encoder->time_base = {1, track.sampleRate};
  if (aac) encoder->bit_rate = 32'000;
  Check(av_buffersink_get_ch_layout(sound.Sink(), &encoder->ch_layout), "test sound");
  Check(avcodec_open2(encoder.get(), nullptr, nullptr), "audio encoder");
  track.samplesPerFrame = aac ? encoder->frame_size : 160;
  sound.SetBlockSize(static_cast<unsigned>(track.samplesPerFrame));

  const auto timeOf = [&](std::size_t frames) {
    return static_cast<std::int64_t>(frames) * track.samplesPerFrame * 1'000'000 / track.sampleRate;
  };
  const int blocks =
      static_cast<int>(std::ceil(seconds * track.sampleRate / track.samplesPerFrame));
  Encode(*encoder, sound, std::max(blocks, 1), [&](const AVPacket& packet) {
    const auto payload =
        aac ? WithAdtsHeader(BytesOf(packet), track.sampleRate, 1) : std::vector<std::byte>{};
    track.Append(aac ? std::span<const std::byte>(payload) : BytesOf(packet),
                 timeOf(track.frames.size()), KELVO_FRAME_AUDIO);
  });
  track.durationUs = timeOf(track.frames.size());
  return track;
}

}  // namespace nvrhost

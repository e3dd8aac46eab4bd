#include "nvrhost/MediaProbe.h"

#include <vector>

#include "nvrhost/Ffmpeg.h"

namespace nvrhost {
namespace {

// Decodes all that is ready. Returns the pictures or blocks of sound.
std::uint64_t Drain(AVCodecContext& decoder, AVFrame& frame, std::uint64_t& errors) {
  std::uint64_t count = 0;
  for (;;) {
    const int result = avcodec_receive_frame(&decoder, &frame);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return count;
    if (result < 0) {
      ++errors;
      return count;
    }
    if (frame.decode_error_flags != 0) ++errors;
    ++count;
  }
}

CodecPtr OpenDecoder(const AVStream& stream) {
  const auto* const codec =
      CheckMade(avcodec_find_decoder(stream.codecpar->codec_id), "no decoder for the file");
  CodecPtr decoder(CheckMade(avcodec_alloc_context3(codec), "out of memory"));
  Check(avcodec_parameters_to_context(decoder.get(), stream.codecpar), "decoder");
  decoder->err_recognition = AV_EF_EXPLODE;
  Check(avcodec_open2(decoder.get(), codec, nullptr), "decoder");
  return decoder;
}

}  // namespace

MediaProbe ProbeMedia(const std::string& path) {
  AVFormatContext* opened = nullptr;
  Check(avformat_open_input(&opened, path.c_str(), nullptr, nullptr), "FFmpeg can't open " + path);
  const InputPtr input(opened);
  Check(avformat_find_stream_info(input.get(), nullptr), "FFmpeg can't read " + path);

  MediaProbe probe;
  std::vector<CodecPtr> decoders;
  for (unsigned index = 0; index < input->nb_streams; ++index) {
    const auto& stream = *input->streams[index];
    decoders.push_back(OpenDecoder(stream));
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
    probe.videoCodec = avcodec_get_name(stream.codecpar->codec_id);
    probe.videoSeconds = static_cast<double>(stream.duration) * av_q2d(stream.time_base);
  }
  const FramePtr frame(CheckMade(av_frame_alloc(), "out of memory"));
  const auto decode = [&](std::size_t index, const AVPacket* packet) {
    if (avcodec_send_packet(decoders[index].get(), packet) < 0) ++probe.errors;
    const auto count = Drain(*decoders[index], *frame, probe.errors);
    const bool video = decoders[index]->codec_type == AVMEDIA_TYPE_VIDEO;
    (video ? probe.videoFrames : probe.audioFrames) += count;
  };
  const PacketPtr packet(CheckMade(av_packet_alloc(), "out of memory"));
  for (; av_read_frame(input.get(), packet.get()) >= 0; av_packet_unref(packet.get())) {
    decode(static_cast<std::size_t>(packet->stream_index), packet.get());
  }
  for (std::size_t index = 0; index < decoders.size(); ++index) decode(index, nullptr);
  return probe;
}

}  // namespace nvrhost

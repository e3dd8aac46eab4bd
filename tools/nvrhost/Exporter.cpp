#include "nvrhost/Exporter.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "kelvo/host_abi.h"
#include "nvrhost/CodecIds.h"
#include "nvrhost/PictureDecoder.h"

namespace nvrhost {
namespace {

constexpr AVRational kTicks{1, 90'000};
constexpr int kTicksPerMs = 90;
constexpr std::size_t kMostQueued = std::size_t{64}
                                    << 20;  // while a stream's first frame is awaited
constexpr std::int64_t kJitterMs = 2;  // of capture times, within which sound goes on without a gap

std::string UtcText(std::int64_t ms) {
  const auto seconds = static_cast<std::time_t>(ms / 1000);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

BitstreamFilterPtr OpenFilter(const char* name, AVCodecID codec) {
  AVBSFContext* made = nullptr;
  Check(av_bsf_alloc(CheckMade(av_bsf_get_by_name(name), name), &made), name);
  BitstreamFilterPtr filter(made);
  filter->par_in->codec_id = codec;
  filter->time_base_in = kTicks;
  Check(av_bsf_init(filter.get()), name);
  return filter;
}

// Moves the parameters that a packet brings along, if it does. Left in the packet they would come
// to the muxer a second time.
void TakeExtradata(AVPacket& packet, AVCodecParameters& parameters) {
  std::size_t size = 0;
  const auto* const data = av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, &size);
  if (data == nullptr || size == 0) return;
  if (parameters.extradata != nullptr) {
    av_packet_free_side_data(&packet);
    return;
  }
  parameters.extradata = static_cast<std::uint8_t*>(
      CheckMade(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE), "out of memory"));
  std::memcpy(parameters.extradata, data, size);
  parameters.extradata_size = static_cast<int>(size);
  av_packet_free_side_data(&packet);
}

bool CanHold(const AVOutputFormat& format, AVCodecID codec) {
  unsigned tag = 0;
  return codec != AV_CODEC_ID_NONE &&
         (avformat_query_codec(&format, codec, FF_COMPLIANCE_NORMAL) == 1 ||
          av_codec_get_tag2(format.codec_tag, codec, &tag) == 1);
}

// Samples in a frame of sound.
std::int64_t SamplesOf(AVCodecID codec, std::size_t size) {
  constexpr std::int64_t kAacFrame = 1024, kMpegFrame = 1152;
  if (codec == AV_CODEC_ID_AAC) return kAacFrame;
  if (codec == AV_CODEC_ID_MP2 || codec == AV_CODEC_ID_MP3) return kMpegFrame;
  return static_cast<std::int64_t>(size);
}

int AdtsChannels(std::span<const std::byte> payload) {
  if (payload.size() < 4) return 1;
  const auto at = [&](std::size_t index) { return std::to_integer<int>(payload[index]); };
  return std::max((at(2) & 1) << 2 | at(3) >> 6, 1);
}

}  // namespace

struct Exporter::Track {
  std::uint32_t streamId = 0;
  bool audio = false;
  std::string name;
  hostkit::SearchResult row;
  AVCodecID codec = AV_CODEC_ID_NONE;
  AVStream* stream = nullptr;  // once the header is written
  std::unique_ptr<AVCodecParameters, FreeByAddress<avcodec_parameters_free>> parameters{
      CheckMade(avcodec_parameters_alloc(), "out of memory")};
  bool described = false;
  std::unique_ptr<PresentationTimes> times;  // video
  BitstreamFilterPtr filter;                 // audio that needs one
  std::int64_t nextTicks = -1;               // audio: where the last frame ends
  std::deque<PacketPtr> ready;
};

Exporter::Exporter(std::string toPath) : path(std::move(toPath)) {
  Check(avformat_alloc_output_context2(&output, nullptr, nullptr, path.c_str()),
        "no format for " + path);
}

Exporter::~Exporter() {
  if (output->pb != nullptr) avio_closep(&output->pb);
  avformat_free_context(output);
}

void Exporter::AddStream(std::uint32_t streamId, const hostkit::SearchResult& row,
                         const std::string& name) {
  auto track = std::make_unique<Track>();
  track->streamId = streamId;
  track->audio = row.input.audio;
  track->name = name;
  track->row = row;
  track->codec = track->audio ? AudioCodecId(row.standard) : VideoCodecId(row.standard);
  const char* const codecName = avcodec_get_name(track->codec);
  if (!CanHold(*output->oformat, track->codec)) {
    notices.push_back(name + (track->audio ? ": audio (" : ": video (") + codecName +
                      ") is left out: " + output->oformat->name + " can't hold it");
    return;
  }
  auto& parameters = *track->parameters;
  parameters.codec_id = track->codec;
  if (track->audio) {
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.sample_rate = row.sampleRate > 0 ? row.sampleRate : 8000;
    if (track->codec == AV_CODEC_ID_AAC) track->filter = OpenFilter("aac_adtstoasc", track->codec);
  } else {
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    track->times = std::make_unique<PresentationTimes>(track->codec);
  }
  tracks.push_back(std::move(track));
}

Exporter::Track* Exporter::Find(std::uint32_t streamId) {
  for (const auto& track : tracks) {
    if (track->streamId == streamId) return track.get();
  }
  return nullptr;
}

void Exporter::Take(const PlayedFrame& frame) {
  auto* const track = Find(frame.streamId);
  if (track == nullptr || frame.empty || frame.payload.empty()) return;
  // A picture without the one it needs can't be decoded.
  if (!track->audio && !track->described && frame.header.FrameType != KELVO_FRAME_I) return;
  if (originMs < 0) originMs = frame.UtcMs();
  track->audio ? TakeAudio(*track, frame) : TakeVideo(*track, frame);
  if (!headerWritten &&
      (queuedBytes > kMostQueued ||
       std::all_of(tracks.begin(), tracks.end(), [](auto& one) { return one->described; }))) {
    WriteHeader();
  }
  if (headerWritten) WriteReady();
}

void Exporter::DescribeVideo(Track& track, const PlayedFrame& frame) {
  auto& parameters = *track.parameters;
  parameters.width = track.row.width;
  parameters.height = track.row.height;
  if (const auto picture = DecodeKeyFrame(track.codec, frame.payload)) {
    parameters.width = picture->width;
    parameters.height = picture->height;
    parameters.format = picture->format;
    parameters.sample_aspect_ratio = picture->sample_aspect_ratio;
  }
  if (track.codec != AV_CODEC_ID_MJPEG) {
    const auto filter = OpenFilter("extract_extradata", track.codec);
    const auto packet = NewPacket(frame.payload);
    Check(av_bsf_send_packet(filter.get(), packet.get()), "extract_extradata");
    Check(av_bsf_receive_packet(filter.get(), packet.get()), "extract_extradata");
    TakeExtradata(*packet, parameters);
  }
  // Some players take H.265 only under this name.
  if (track.codec == AV_CODEC_ID_HEVC && std::string_view(output->oformat->name) != "matroska") {
    parameters.codec_tag = MKTAG('h', 'v', 'c', '1');
  }
  track.described = true;
}

void Exporter::TakeVideo(Track& track, const PlayedFrame& frame) {
  if (!track.described) DescribeVideo(track, frame);
  track.times->Add(NewPacket(frame.payload), (frame.UtcMs() - originMs) * kTicksPerMs,
                   frame.header.FrameType);
  for (auto& packet : track.times->Take()) Queue(track, std::move(packet));
}

void Exporter::TakeAudio(Track& track, const PlayedFrame& frame) {
  auto& parameters = *track.parameters;
  auto packet = NewPacket(frame.payload);
  if (track.filter) {
    if (av_bsf_send_packet(track.filter.get(), packet.get()) < 0 ||
        av_bsf_receive_packet(track.filter.get(), packet.get()) < 0) {
      return;  // not a frame of this codec
    }
    TakeExtradata(*packet, parameters);
  }
  if (!track.described) {
    if (track.codec == AV_CODEC_ID_MP2 && frame.payload.size() > 1 &&
        (std::to_integer<int>(frame.payload[1]) & 6) == 2) {
      track.codec = parameters.codec_id = AV_CODEC_ID_MP3;
    }
    const bool aac = track.codec == AV_CODEC_ID_AAC;
    av_channel_layout_default(&parameters.ch_layout, aac ? AdtsChannels(frame.payload) : 1);
    parameters.frame_size = static_cast<int>(SamplesOf(track.codec, frame.payload.size()));
    if (track.codec == AV_CODEC_ID_PCM_MULAW || track.codec == AV_CODEC_ID_PCM_ALAW) {
      parameters.bits_per_coded_sample = 8;
      parameters.block_align = 1;
    }
    track.described = true;
  }
  std::int64_t ticks = (frame.UtcMs() - originMs) * kTicksPerMs;
  if (track.nextTicks >= 0 && std::abs(ticks - track.nextTicks) <= kJitterMs * kTicksPerMs) {
    ticks = track.nextTicks;
  }
  packet->duration = av_rescale_q(SamplesOf(track.codec, frame.payload.size()),
                                  {1, parameters.sample_rate}, kTicks);
  packet->pts = packet->dts = std::max(ticks, track.nextTicks < 0 ? ticks : track.nextTicks);
  packet->flags |= AV_PKT_FLAG_KEY;
  track.nextTicks = packet->pts + packet->duration;
  Queue(track, std::move(packet));
}

void Exporter::Queue(Track& track, PacketPtr packet) {
  queuedBytes += static_cast<std::size_t>(packet->size);
  track.ready.push_back(std::move(packet));
}

void Exporter::WriteHeader() {
  std::erase_if(tracks, [this](const auto& track) {
    if (!track->described) notices.push_back(track->name + ": a stream without frames is left out");
    return !track->described;
  });
  if (tracks.empty()) throw std::runtime_error("nothing to export to " + path);
  for (const auto& track : tracks) {
    track->stream = CheckMade(avformat_new_stream(output, nullptr), "out of memory");
    Check(avcodec_parameters_copy(track->stream->codecpar, track->parameters.get()), path);
    track->stream->time_base = kTicks;
    track->stream->sample_aspect_ratio = track->parameters->sample_aspect_ratio;
    av_dict_set(&track->stream->metadata, "handler_name", track->name.c_str(), 0);
  }
  av_dict_set(&output->metadata, "creation_time", UtcText(originMs).c_str(), 0);
  Check(avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE), "can't write " + path);
  Check(avformat_write_header(output, nullptr), "can't begin " + path);
  headerWritten = true;
}

void Exporter::WriteReady() {
  for (const auto& track : tracks) {
    for (; !track->ready.empty(); track->ready.pop_front()) {
      auto& packet = *track->ready.front();
      queuedBytes -= static_cast<std::size_t>(packet.size);
      if (!track->audio) ++videoFrames;
      av_packet_rescale_ts(&packet, kTicks, track->stream->time_base);
      packet.stream_index = track->stream->index;
      Check(av_interleaved_write_frame(output, &packet), "can't write " + path);
    }
  }
}

void Exporter::Finish() {
  for (const auto& track : tracks) {
    if (!track->times) continue;
    track->times->Finish();
    for (auto& packet : track->times->Take()) Queue(*track, std::move(packet));
  }
  if (!headerWritten) WriteHeader();
  WriteReady();
  Check(av_write_trailer(output), "can't finish " + path);
  Check(avio_closep(&output->pb), "can't finish " + path);
}

}  // namespace nvrhost

#include "nvrhost/PictureDecoder.h"

#include <cstring>

namespace nvrhost {

PacketPtr NewPacket(std::span<const std::byte> payload) {
  PacketPtr packet(CheckMade(av_packet_alloc(), "out of memory"));
  Check(av_new_packet(packet.get(), static_cast<int>(payload.size())), "packet");
  std::memcpy(packet->data, payload.data(), payload.size());
  return packet;
}

FramePtr DecodeKeyFrame(AVCodecID codec, std::span<const std::byte> payload) {
  const auto* const decoder = avcodec_find_decoder(codec);
  if (decoder == nullptr) return nullptr;
  const CodecPtr context(CheckMade(avcodec_alloc_context3(decoder), "out of memory"));
  context->thread_count = 1;
  Check(avcodec_open2(context.get(), decoder, nullptr), "decoder");
  const auto packet = NewPacket(payload);
  packet->flags |= AV_PKT_FLAG_KEY;
  FramePtr frame(CheckMade(av_frame_alloc(), "out of memory"));
  if (avcodec_send_packet(context.get(), packet.get()) < 0) return nullptr;
  // A decoder that waits for the next picture gives this one at the end.
  avcodec_send_packet(context.get(), nullptr);
  return avcodec_receive_frame(context.get(), frame.get()) < 0 ? nullptr : std::move(frame);
}

}  // namespace nvrhost

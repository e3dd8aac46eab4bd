#include "nvrhost/PresentationTimes.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "kelvo/host_abi.h"

namespace nvrhost {
namespace {
constexpr std::int64_t kUsualDuration = 3600;  // 25 frames in a second
}

PresentationTimes::PresentationTimes(AVCodecID codec)
    : codecId(codec),
      context(CheckMade(avcodec_alloc_context3(nullptr), "out of memory")),
      parser(av_parser_init(codec)) {
  context->codec_id = codec;
  if (parser) parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
}

std::int64_t PresentationTimes::OrderOf(const AVPacket& packet) {
  if (!parser) return 0;
  std::uint8_t* unused = nullptr;
  int unusedSize = 0;
  av_parser_parse2(parser.get(), context.get(), &unused, &unusedSize, packet.data, packet.size,
                   AV_NOPTS_VALUE, AV_NOPTS_VALUE, -1);
  return parser->output_picture_number;
}

void PresentationTimes::Add(PacketPtr packet, std::int64_t ticks, std::uint8_t type) {
  if (type == KELVO_FRAME_I) EndGroup();
  const std::int64_t order = OrderOf(*packet);
  group.push_back({std::move(packet), ticks, type, order});
}

std::vector<std::size_t> PresentationTimes::Places() {
  std::vector<std::size_t> shown(group.size());
  std::iota(shown.begin(), shown.end(), std::size_t{0});
  if (codecId == AV_CODEC_ID_H264 || codecId == AV_CODEC_ID_HEVC) {
    std::stable_sort(shown.begin(), shown.end(),
                     [&](auto a, auto b) { return group[a].order < group[b].order; });
  } else {
    // Each other frame waits for the B frames behind it.
    shown.clear();
    std::size_t held = group.size();
    for (std::size_t index = 0; index < group.size(); ++index) {
      if (group[index].type == KELVO_FRAME_B) {
        shown.push_back(index);
      } else {
        if (held < group.size()) shown.push_back(held);
        held = index;
      }
    }
    if (held < group.size()) shown.push_back(held);
  }
  std::vector<std::size_t> places(group.size());
  for (std::size_t place = 0; place < shown.size(); ++place) places[shown[place]] = place;
  return places;
}

void PresentationTimes::EndGroup() {
  if (group.empty()) return;
  const auto places = Places();
  const std::int64_t step = group.size() > 1
                                ? std::max<std::int64_t>(group[1].ticks - group[0].ticks, 1)
                                : kUsualDuration;
  if (!begun) {
    begun = true;
    for (std::size_t index = 0; index < group.size(); ++index) {
      if (index > places[index]) delay = std::max(delay, index - places[index]);
    }
    for (std::size_t index = delay; index > 0; --index) {
      lastTicks.push_back(group[0].ticks - static_cast<std::int64_t>(index) * step);
    }
    lastDts = std::numeric_limits<std::int64_t>::min() / 2;
    lastDuration = step;
  }
  for (std::size_t index = 0; index < group.size(); ++index) {
    auto& packet = *group[index].packet;
    lastTicks.push_back(group[index].ticks);
    const std::int64_t shown = group[places[index]].ticks;
    // Stamps must rise whatever the clock did.
    packet.dts = std::max(std::min(lastTicks.front(), shown), lastDts + 1);
    packet.pts = std::max(shown, packet.dts);
    lastTicks.pop_front();
    lastDts = packet.dts;
    if (index + 1 < group.size()) {
      lastDuration = std::max<std::int64_t>(group[index + 1].ticks - group[index].ticks, 1);
    }
    packet.duration = lastDuration;
    if (group[index].type == KELVO_FRAME_I) packet.flags |= AV_PKT_FLAG_KEY;
    ready.push_back(std::move(group[index].packet));
  }
  group.clear();
}

}  // namespace nvrhost

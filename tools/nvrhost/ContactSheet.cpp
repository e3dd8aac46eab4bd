#include "nvrhost/ContactSheet.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace nvrhost {
namespace {

constexpr int kGap = 4;
constexpr std::uint8_t kGround = 0x18;
constexpr std::size_t kBytesPerPixel = 3;

// Text as drawtext takes it between quotes.
std::string Quoted(const std::string& text) {
  std::string result;
  for (const char letter : text) {
    if (letter == ':') {
      result += "\\:";
    } else if (letter != '\'' && letter != '\\' && letter != '%') {
      result += letter;
    }
  }
  return result;
}

// One picture through a chain of filters that begins behind the given source.
FramePtr Filter(const std::string& source, const std::string& chain, const AVFrame* picture) {
  const GraphPtr graph(CheckMade(avfilter_graph_alloc(), "out of memory"));
  const std::string description = source + "," + chain + ",format=rgb24,buffersink@out";
  AVFilterInOut* inputs = nullptr;
  AVFilterInOut* outputs = nullptr;
  const int parsed = avfilter_graph_parse2(graph.get(), description.c_str(), &inputs, &outputs);
  avfilter_inout_free(&inputs);
  avfilter_inout_free(&outputs);
  Check(parsed, "FFmpeg can't make the filters " + description);
  auto* const first = graph->filters[0];
  auto* const sink = graph->filters[graph->nb_filters - 1];
  Check(avfilter_graph_config(graph.get(), nullptr), description);
  FramePtr result(CheckMade(av_frame_alloc(), "out of memory"));
  if (picture != nullptr) {
    Check(av_buffersrc_write_frame(first, picture), description);
    Check(av_buffersrc_add_frame(first, nullptr), description);
  }
  Check(av_buffersink_get_frame(sink, result.get()), description);
  return result;
}

}  // namespace

ContactSheet::ContactSheet(std::size_t sheetColumns, std::size_t sheetRows, int width, int height)
    : columns(sheetColumns),
      rows(sheetRows),
      cellWidth(width),
      cellHeight(height),
      sheet(CheckMade(av_frame_alloc(), "out of memory")) {
  sheet->format = AV_PIX_FMT_RGB24;
  sheet->width = kGap + static_cast<int>(columns) * (cellWidth + kGap);
  sheet->height = kGap + static_cast<int>(rows) * (cellHeight + kGap);
  Check(av_frame_get_buffer(sheet.get(), 0), "contact sheet");
  for (int line = 0; line < sheet->height; ++line) {
    std::memset(sheet->data[0] + std::ptrdiff_t{line} * sheet->linesize[0], kGround,
                static_cast<std::size_t>(sheet->width) * kBytesPerPixel);
  }
}

void ContactSheet::Set(std::size_t column, std::size_t row, const AVFrame* picture,
                       const std::string& text) {
  const std::string size = std::to_string(cellWidth) + ":" + std::to_string(cellHeight);
  std::string source =
      "color=c=0x383838:s=" + std::to_string(cellWidth) + "x" + std::to_string(cellHeight);
  std::string scale = "null";
  if (picture != nullptr) {
    const auto aspect = picture->sample_aspect_ratio;
    source = "buffer=width=" + std::to_string(picture->width) +
             ":height=" + std::to_string(picture->height) +
             ":pix_fmt=" + av_get_pix_fmt_name(static_cast<AVPixelFormat>(picture->format)) +
             ":time_base=1/25:sar=" + std::to_string(aspect.num) + "/" +
             std::to_string(std::max(aspect.den, 1));
    scale = "scale=" + size + ":force_original_aspect_ratio=decrease:flags=area,pad=" + size +
            ":(ow-iw)/2:(oh-ih)/2";
  }
  const std::string label = ",drawtext=text='" + Quoted(text) +
                            "':fontcolor=white:box=1:boxcolor=black@0.6:boxborderw=3:x=5:y=h-th-6"
                            ":fontsize=" +
                            std::to_string(std::max(cellHeight / 13, 9));
  FramePtr cell;
  try {
    cell = Filter(source, scale + label, picture);
  } catch (const std::runtime_error&) {
    // No drawtext or no font in this FFmpeg: the picture goes without its text.
    cell = Filter(source, scale, picture);
  }
  const auto x =
      static_cast<std::size_t>(kGap) + column * static_cast<std::size_t>(cellWidth + kGap);
  const auto y =
      static_cast<std::ptrdiff_t>(kGap) + static_cast<std::ptrdiff_t>(row) * (cellHeight + kGap);
  for (int line = 0; line < cellHeight; ++line) {
    std::memcpy(sheet->data[0] + (y + line) * sheet->linesize[0] + x * kBytesPerPixel,
                cell->data[0] + std::ptrdiff_t{line} * cell->linesize[0],
                static_cast<std::size_t>(cellWidth) * kBytesPerPixel);
  }
}

void ContactSheet::Save(const std::string& path) const {
  const auto* const codec =
      CheckMade(avcodec_find_encoder(AV_CODEC_ID_PNG), "this FFmpeg has no PNG encoder");
  const CodecPtr encoder(CheckMade(avcodec_alloc_context3(codec), "out of memory"));
  encoder->width = sheet->width;
  encoder->height = sheet->height;
  encoder->pix_fmt = AV_PIX_FMT_RGB24;
  encoder->time_base = {1, 1};
  Check(avcodec_open2(encoder.get(), codec, nullptr), "PNG encoder");
  Check(avcodec_send_frame(encoder.get(), sheet.get()), "PNG encoder");
  const PacketPtr packet(CheckMade(av_packet_alloc(), "out of memory"));
  Check(avcodec_receive_packet(encoder.get(), packet.get()), "PNG encoder");
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) throw std::runtime_error("can't write " + path);
  const auto size = static_cast<std::size_t>(packet->size);
  const bool written = std::fwrite(packet->data, 1, size, file) == size;
  if (std::fclose(file) != 0 || !written) throw std::runtime_error("can't write " + path);
}

}  // namespace nvrhost

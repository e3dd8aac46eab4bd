#pragma once

#include <memory>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace nvrhost {

// FFmpeg's objects, each freed by its own function.
template <auto Free>
struct FreeByAddress {
  template <typename T>
  void operator()(T* object) const {
    Free(&object);
  }
};
struct CloseParser {
  void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
};

using PacketPtr = std::unique_ptr<AVPacket, FreeByAddress<av_packet_free>>;
using FramePtr = std::unique_ptr<AVFrame, FreeByAddress<av_frame_free>>;
using CodecPtr = std::unique_ptr<AVCodecContext, FreeByAddress<avcodec_free_context>>;
using InputPtr = std::unique_ptr<AVFormatContext, FreeByAddress<avformat_close_input>>;
using GraphPtr = std::unique_ptr<AVFilterGraph, FreeByAddress<avfilter_graph_free>>;
using BitstreamFilterPtr = std::unique_ptr<AVBSFContext, FreeByAddress<av_bsf_free>>;
using ParserPtr = std::unique_ptr<AVCodecParserContext, CloseParser>;

// Throws std::runtime_error "what: reason" for a negative result of FFmpeg; passes others on.
inline int Check(int result, const std::string& what) {
  if (result < 0) {
    char reason[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(result, reason, sizeof reason);
    throw std::runtime_error(what + ": " + reason);
  }
  return result;
}

// As Check, for the results that are null on failure.
template <typename T>
T* CheckMade(T* object, const std::string& what) {
  if (object == nullptr) throw std::runtime_error(what);
  return object;
}

}  // namespace nvrhost

#include "nvrhost/FilterSource.h"

namespace nvrhost {

FilterSource::FilterSource(const std::string& description, AVMediaType media)
    : graph(CheckMade(avfilter_graph_alloc(), "out of memory")),
      sink(nullptr),
      frame(CheckMade(av_frame_alloc(), "out of memory")) {
  const std::string what = "FFmpeg can't make the test source \"" + description + "\"";
  const std::string chain =
      description + (media == AVMEDIA_TYPE_VIDEO ? ",buffersink@out" : ",abuffersink@out");
  AVFilterInOut* inputs = nullptr;
  AVFilterInOut* outputs = nullptr;
  const int parsed = avfilter_graph_parse2(graph.get(), chain.c_str(), &inputs, &outputs);
  avfilter_inout_free(&inputs);
  avfilter_inout_free(&outputs);
  Check(parsed, what);
  // Configuring appends filters of its own.
  sink = CheckMade(graph->filters[graph->nb_filters - 1], what);
  Check(avfilter_graph_config(graph.get(), nullptr), what);
}

AVFrame* FilterSource::Next() {
  av_frame_unref(frame.get());
  Check(av_buffersink_get_frame(sink, frame.get()), "FFmpeg's test source");
  return frame.get();
}

}  // namespace nvrhost

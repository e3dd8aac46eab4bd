#include "nvrhost/ThumbsCommand.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <optional>
#include <stdexcept>

#include "nvrhost/CodecIds.h"
#include "nvrhost/ContactSheet.h"
#include "nvrhost/PictureDecoder.h"
#include "nvrhost/Report.h"
#include "nvrhost/TimeOption.h"

namespace nvrhost {
namespace {

constexpr std::size_t kTimeLength = 19, kClockAt = 11;  // of "YYYY-MM-DD HH:MM:SS"

// A key frame as it came.
struct KeyFrame {
  std::int64_t utcMs = 0;
  FramePtr picture;
};

// Moments in the middle of equal parts of what is there.
std::vector<std::int64_t> SpreadMoments(SearchSession& session, const TimeRange& range,
                                        const std::vector<StoredCamera>& cameras, int count) {
  hostkit::SearchRequest request;
  request.start = range.from;
  request.end = range.to;
  for (const auto& camera : cameras) request.inputs.push_back(camera.Video());
  const auto rows = session.Ask(request, {}).results.rows;
  if (rows.empty()) throw std::runtime_error("no footage in that range");
  std::int64_t begin = rows[0].start, end = rows[0].end;
  for (const auto& row : rows) {
    begin = std::min(begin, row.start);
    end = std::max(end, row.end);
  }
  begin = std::max(begin, range.from);
  end = std::min(end, range.to);
  std::vector<std::int64_t> moments;
  moments.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i)
    moments.push_back(begin + (end - begin) * (2 * i + 1) / (2 * count));
  return moments;
}

// Asks for each camera's key frames at the moments and decodes them, in the order of time.
std::vector<std::vector<KeyFrame>> KeyFramesOf(SearchSession& session, const TimeRange& range,
                                               const std::vector<StoredCamera>& cameras,
                                               const std::vector<std::int64_t>& moments) {
  hostkit::SearchRequest request;
  request.type = 1;
  request.start = std::min(range.from, moments.front());
  request.end = std::max(range.to, moments.back() + 1);
  for (const auto& camera : cameras) {
    request.inputs.push_back(camera.Video());
    request.inputs.back().moments = moments;
  }
  std::optional<StreamNames> names;
  std::vector<std::vector<KeyFrame>> frames(cameras.size());
  const auto take = [&](const PlayedFrame& frame) {
    const auto* const stream = names ? names->Find(frame.streamId) : nullptr;
    if (stream == nullptr || frame.empty) return;
    auto picture = DecodeKeyFrame(VideoCodecId(stream->row.standard), frame.payload);
    if (picture == nullptr) {
      std::printf("%s: the picture of %s can't be decoded\n", cameras[stream->camera].name.c_str(),
                  TimeText(frame.UtcMs()).c_str());
      return;
    }
    frames[stream->camera].push_back({frame.UtcMs(), std::move(picture)});
  };
  const auto outcome =
      session.Ask(request, {[&](const auto& results) { names.emplace(results, cameras); }, take});
  if (!outcome.answered || !outcome.ended) throw std::runtime_error("the search wasn't answered");
  return frames;
}

// The frame that answers a moment: the last one at or before it, unless it lies so far back that
// the camera has a gap there. A frame up to a second later was there when the moment's own second
// ended.
KeyFrame* AnswerTo(std::int64_t moment, std::vector<KeyFrame>& frames) {
  constexpr std::int64_t kFarthestMs = 60'000;
  KeyFrame* best = nullptr;
  for (auto& frame : frames) {
    if (frame.utcMs < moment * 1000 + 1000) best = &frame;
  }
  return best != nullptr && moment * 1000 - best->utcMs <= kFarthestMs ? best : nullptr;
}

}  // namespace

void AddThumbsOptions(CLI::App& command, ThumbsOptions& options) {
  AddSearchOptions(command, options.search);
  OptionGroup group(command, "Sheet");
  group.AddShown("--out", options.output, "FILE", "the PNG to write");
  group.Add("--at", options.moments, "TIME", "a moment, as for --from; repeatable");
  group.AddNumber("--columns", options.columns, 1, 60, "N",
                  "without --at: so many moments, spread over the footage");
  group.AddNumber("--cell", options.cellWidth, 64, 1920, "PIXELS", "width of a picture");
}

ThumbsTotals MakeThumbs(ThumbsOptions options, const std::string& programPath) {
  options.output = boost::filesystem::absolute(options.output).string();
  Console console;
  SearchSession session(options.search, programPath, console);
  const auto cameras = ChooseCameras(session.What(), options.search.cameras);
  const auto range = RangeOf(options.search, session.What());
  std::vector<std::int64_t> moments;
  for (const auto& text : options.moments) moments.push_back(ParseTime("--at", text));
  if (moments.empty()) moments = SpreadMoments(session, range, cameras, options.columns);
  std::sort(moments.begin(), moments.end());
  moments.erase(std::unique(moments.begin(), moments.end()), moments.end());

  auto frames = KeyFramesOf(session, range, cameras, moments);

  ContactSheet sheet(moments.size(), cameras.size(), options.cellWidth, options.cellWidth * 3 / 4);
  ThumbsTotals totals{moments.size() * cameras.size(), 0};
  for (std::size_t row = 0; row < cameras.size(); ++row) {
    for (std::size_t column = 0; column < moments.size(); ++column) {
      auto* const frame = AnswerTo(moments[column], frames[row]);
      totals.filled += frame != nullptr ? 1 : 0;
      const std::string when =
          frame != nullptr ? TimeText(frame->utcMs).substr(kClockAt)
                           : TimeText(moments[column] * 1000).substr(0, kTimeLength) + " nothing";
      sheet.Set(column, row, frame != nullptr ? frame->picture.get() : nullptr,
                cameras[row].name + "  " + when);
    }
  }
  sheet.Save(options.output);
  std::printf("%s: %zu cameras, %zu moments, %zu of %zu pictures\n", options.output.c_str(),
              cameras.size(), moments.size(), totals.filled, totals.cells);
  return totals;
}

int Thumbs(const ThumbsOptions& options, const std::string& programPath) {
  return MakeThumbs(options, programPath).filled > 0 ? 0 : 1;
}

}  // namespace nvrhost

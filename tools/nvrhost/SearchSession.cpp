#include "nvrhost/SearchSession.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <stdexcept>

#include "nvrhost/TimeOption.h"

namespace nvrhost {
namespace {

constexpr std::uint32_t kGoOn = 0, kCancel = 1;
constexpr std::int64_t kLatestSearch = 2'147'483'647;  // a request's times are signed

std::string EnterAndFindPlugin(const SearchOptions& options, const std::string& programPath) {
  std::string plugin = FindPlugin(options.plugin, programPath);
  if (options.archive.Given()) {
    EnterForRecording(options.directory);
  } else {
    EnterRecorded(options.directory);
  }
  return plugin;
}

Stored FindWhatIsThere(const SearchOptions& options) {
  if (options.archive.Given()) {
    return StoredIn(FindArchived(options.archive), options.archive.address);
  }
  return FindStored((boost::filesystem::current_path() / "drives").string());
}

}  // namespace

void AddSearchOptions(CLI::App& command, SearchOptions& options) {
  OptionGroup group(command, "Search");
  AddPluginOption(command, "Search", options.plugin);
  group.AddShown("--dir", options.directory, "DIR", "working directory of the recordings");
  group
      .Add("--camera", options.cameras, "NAMES",
           "numbers from 1, or names; several with commas [all]")
      .delimiter(',');
  group.Add("--from", options.from, "TIME",
            "begin of the range: \"YYYY-MM-DD HH:MM:SS\" local, with a Z behind it UTC, or "
            "@SECONDS [of the first recording]");
  group.Add("--to", options.to, "TIME", "its end [of the last recording]");
  AddLogOption(command, "Search", options.logLevel);
  AddArchiveOptions(command, options.archive);
}

TimeRange RangeOf(const SearchOptions& options, const Stored& stored) {
  TimeRange range{stored.beginSeconds, stored.endSeconds};
  if (!options.from.empty()) range.from = ParseTime("--from", options.from);
  if (!options.to.empty()) range.to = ParseTime("--to", options.to);
  if (range.from >= range.to) throw std::runtime_error("--from must lie before --to");
  if (range.to > kLatestSearch) throw std::runtime_error("a search ends in 2038 at the latest");
  return range;
}

SearchSession::SearchSession(const SearchOptions& options, const std::string& programPath,
                             Console& console)
    : library(options.archive.Given() ? std::make_unique<S3Library>() : nullptr),
      host(EnterAndFindPlugin(options, programPath)),
      listener(host, console, LogLevel(options.logLevel), false),
      stored(FindWhatIsThere(options)) {
  CatchInterrupts();
  host.onSearch = [this](const KelvoHostRequest& request) { return Take(request); };
  host.Load();
  host.Open();
  if (library != nullptr) AnnounceArchive(host, options.archive);
}

SearchSession::~SearchSession() {
  host.Close();
  host.Unload();
}

SearchSession::Outcome SearchSession::Ask(const hostkit::SearchRequest& request,
                                          const Handlers& handlers) {
  current = &handlers;
  outcome = {};
  thrown = nullptr;
  ++requestId;
  auto asked = request;
  if (library != nullptr) asked.local = false;
  host.Read(hostkit::RequestXml(asked), requestId);
  current = nullptr;
  if (thrown) std::rethrow_exception(thrown);
  if (Interrupted()) throw std::runtime_error("interrupted");
  return std::move(outcome);
}

std::uint32_t SearchSession::Take(const KelvoHostRequest& request) {
  if (current == nullptr || request.RequestId != requestId || Interrupted()) return kCancel;
  try {
    switch (request.SubCode) {
      case KELVO_SUB_SEARCH_RESULT:
        outcome.results = hostkit::ParseResults(
            std::string(static_cast<const char*>(request.Payload), request.Length));
        outcome.answered = true;
        if (current->results) current->results(outcome.results);
        break;
      case KELVO_SUB_SEARCH_FRAME:
        TakeFrame(request);
        break;
      default:
        // Progress; the last one is the end.
        outcome.ended = outcome.answered;
        break;
    }
    return kGoOn;
  } catch (...) {
    // Through the plug-in no exception may pass.
    thrown = std::current_exception();
    return kCancel;
  }
}

void SearchSession::TakeFrame(const KelvoHostRequest& request) {
  PlayedFrame frame{request.Source, request.u.Header, {}, request.Length == 0};
  if (frame.empty) {
    ++outcome.emptyFrames;
  } else {
    if (request.u.Header.PayloadOffset > request.Length) {
      throw std::runtime_error("a played frame's content begins behind its end");
    }
    frame.payload = std::span(static_cast<const std::byte*>(request.Payload), request.Length)
                        .subspan(request.u.Header.PayloadOffset);
  }
  ++outcome.frames;
  if (current->frame) current->frame(frame);
}

StreamNames::StreamNames(const hostkit::SearchResults& results,
                         const std::vector<StoredCamera>& cameras) {
  for (const auto& row : results.rows) {
    const auto camera = std::find_if(cameras.begin(), cameras.end(),
                                     [&](const auto& one) { return one.Has(row.input); });
    if (camera == cameras.end()) continue;
    const auto index = static_cast<std::size_t>(camera - cameras.begin());
    const auto [found, added] = streams.try_emplace(row.streamId, Stream{index, row});
    if (added) continue;
    auto& known = found->second;
    known.mixed = known.mixed || known.row.standard != row.standard;
    known.row.count += row.count;
    known.row.start = std::min(known.row.start, row.start);
    known.row.end = std::max(known.row.end, row.end);
  }
}

const StreamNames::Stream* StreamNames::Find(std::uint32_t streamId) const {
  const auto found = streams.find(streamId);
  return found == streams.end() ? nullptr : &found->second;
}

}  // namespace nvrhost

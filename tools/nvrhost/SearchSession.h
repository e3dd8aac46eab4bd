#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "hostkit/SearchXml.h"
#include "hostkit/SimHost.h"
#include "nvrhost/ArchiveTarget.h"
#include "nvrhost/Console.h"
#include "nvrhost/HostSetup.h"
#include "nvrhost/OptionGroup.h"
#include "nvrhost/StoredCameras.h"

namespace nvrhost {

// What all verbs that search are asked.
struct SearchOptions {
  std::string plugin;  // empty: beside this program
  std::string directory = "nvrdata";
  std::vector<std::string> cameras;
  std::string from, to;
  std::string logLevel = "warning";
  ArchiveOptions archive;  // searched instead of the drives
};
void AddSearchOptions(CLI::App& command, SearchOptions& options);

struct TimeRange {
  std::int64_t from = 0, to = 0;  // seconds since 1970 UTC, without the end
};
// Throws std::runtime_error. Where the user left an end open, it is that of what is stored.
[[nodiscard]] TimeRange RangeOf(const SearchOptions& options, const Stored& stored);

// A frame as playback gives it, for the time of the call.
struct PlayedFrame {
  std::uint32_t streamId;
  const KelvoFrameHeader& header;
  std::span<const std::byte> payload;  // without the packet around it
  bool empty;                          // stands for a frame that couldn't be read
  [[nodiscard]] std::int64_t UtcMs() const {
    return std::int64_t{header.Seconds} * 1000 + header.Milliseconds;
  }
};

// A host that asks for footage: the plug-in loaded in the directory of the recordings, which
// becomes the process's current one. One at a time.
class SearchSession {
 public:
  SearchSession(const SearchOptions& options, const std::string& programPath, Console& console);
  ~SearchSession();
  SearchSession(const SearchSession&) = delete;
  SearchSession& operator=(const SearchSession&) = delete;

  [[nodiscard]] const Stored& What() const { return stored; }

  struct Handlers {
    std::function<void(const hostkit::SearchResults&)> results;
    std::function<void(const PlayedFrame&)> frame;
  };
  struct Outcome {
    hostkit::SearchResults results;
    std::uint64_t frames = 0, emptyFrames = 0;
    bool answered = false;  // a result document came
    bool ended = false;     // with the end event
  };
  // One whole search. What a handler throws cancels it and comes out of here; a SIGINT cancels it
  // too.
  Outcome Ask(const hostkit::SearchRequest& request, const Handlers& handlers);

 private:
  std::uint32_t Take(const KelvoHostRequest& request);
  void TakeFrame(const KelvoHostRequest& request);

  std::unique_ptr<S3Library> library;  // for an archive
  hostkit::SimHost host;
  Listener listener;
  Stored stored;
  // The search that runs.
  const Handlers* current = nullptr;
  Outcome outcome;
  std::exception_ptr thrown;
  std::uint32_t requestId = 0;
};

// Which camera a played frame belongs to, out of the result document that comes before it.
class StreamNames {
 public:
  StreamNames(const hostkit::SearchResults& results, const std::vector<StoredCamera>& cameras);
  struct Stream {
    std::size_t camera;         // in the given cameras
    hostkit::SearchResult row;  // the stream's first; `count` is the sum of its rows
    bool mixed = false;         // its rows differ in codec
  };
  // Null for a stream that the document doesn't name.
  [[nodiscard]] const Stream* Find(std::uint32_t streamId) const;
  [[nodiscard]] const std::map<std::uint32_t, Stream>& All() const { return streams; }

 private:
  std::map<std::uint32_t, Stream> streams;
};

}  // namespace nvrhost

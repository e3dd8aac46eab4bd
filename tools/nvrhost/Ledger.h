#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "kelvo/host_abi.h"

namespace nvrhost {

// One frame as it was given to the plug-in, or as it came back: content by hash.
struct LedgerEntry {
  std::uint32_t provider = 0;
  std::int64_t utcMs = 0;
  std::uint8_t type = 0;
  std::uint8_t flags = 0;
  std::uint32_t size = 0;
  std::uint64_t payloadHash = 0;
  std::uint64_t metadataHash = 0;
};

// A frame on its way in. Its metadata counts as a recording keeps it: at most 87 bytes, in whole
// triples, the third byte of each without its two low bits.
[[nodiscard]] LedgerEntry EntryOfGiven(std::uint32_t provider, const KelvoFrameHeader& header,
                                       std::span<const std::byte> payload);
// A frame on its way out.
[[nodiscard]] LedgerEntry EntryOfPlayed(std::uint32_t provider, const KelvoFrameHeader& header,
                                        std::span<const std::byte> payload);

// A text file with a line for each frame; those of one provider in the order of giving. Both throw
// std::runtime_error.
class LedgerWriter {
 public:
  explicit LedgerWriter(std::string file);
  ~LedgerWriter();
  LedgerWriter(const LedgerWriter&) = delete;
  LedgerWriter& operator=(const LedgerWriter&) = delete;
  void Add(const std::vector<LedgerEntry>& entries);
  void Finish();

 private:
  std::string path;
  std::FILE* file;
};
[[nodiscard]] std::map<std::uint32_t, std::vector<LedgerEntry>> ReadLedger(const std::string& path);

// Holds the frames that are played against those that were given.
class LedgerCheck {
 public:
  explicit LedgerCheck(const std::string& path);
  // Frames of one provider in the order of playback.
  void Take(const LedgerEntry& played);

  struct Outcome {
    std::uint64_t same = 0;
    std::uint64_t different = 0;  // given at that moment, with another type, size, content or flags
    std::uint64_t unknown = 0;    // never given, or out of order
    std::uint64_t missing = 0;    // given between the first and last that were played, not played
    std::string first;            // what was wrong first
  };
  [[nodiscard]] const Outcome& Result() const { return outcome; }

 private:
  struct Given {
    std::vector<LedgerEntry> entries;
    std::size_t next = 0;  // behind the last one played
    bool begun = false;
  };
  void Note(const LedgerEntry& played, const char* what);

  std::map<std::uint32_t, Given> given;
  Outcome outcome;
};

}  // namespace nvrhost

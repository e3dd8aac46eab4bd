#include "nvrhost/Ledger.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "nvrhost/Report.h"

namespace nvrhost {
namespace {

constexpr std::size_t kMostMetadata = 87;
constexpr std::uint8_t kKeptOfThird = 0xFC;
constexpr const char* kHeading = "provider time_ms type flags size payload metadata";

std::uint64_t Hash(std::span<const std::byte> bytes) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const std::byte value : bytes) {
    hash = (hash ^ std::to_integer<std::uint64_t>(value)) * 0x100000001B3;
  }
  return hash;
}

LedgerEntry Entry(std::uint32_t provider, const KelvoFrameHeader& header,
                  std::span<const std::byte> payload, std::span<const std::uint8_t> metadata) {
  return {provider,
          std::int64_t{header.Seconds} * 1000 + header.Milliseconds,
          header.FrameType,
          header.FrameFlags,
          static_cast<std::uint32_t>(payload.size()),
          Hash(payload),
          Hash(std::as_bytes(metadata))};
}

std::runtime_error SystemError(const std::string& path) {
  return std::runtime_error(path + ": " + std::generic_category().message(errno));
}

}  // namespace

LedgerEntry EntryOfGiven(std::uint32_t provider, const KelvoFrameHeader& header,
                         std::span<const std::byte> payload) {
  std::array<std::uint8_t, kMostMetadata> kept{};
  const std::size_t length = std::min<std::size_t>(header.ExtensionLength & 0xFF, kMostMetadata);
  const std::size_t whole = length / 3 * 3;
  for (std::size_t i = 0; i < whole; ++i) {
    kept[i] = i % 3 == 2 ? header.Extension[i] & kKeptOfThird : header.Extension[i];
  }
  return Entry(provider, header, payload, std::span(kept).first(whole));
}

LedgerEntry EntryOfPlayed(std::uint32_t provider, const KelvoFrameHeader& header,
                          std::span<const std::byte> payload) {
  const std::size_t length = std::min<std::size_t>(header.ExtensionLength, sizeof header.Extension);
  return Entry(provider, header, payload, std::span(header.Extension).first(length));
}

LedgerWriter::LedgerWriter(std::string toPath)
    : path(std::move(toPath)), file(std::fopen(path.c_str(), "w")) {
  if (file == nullptr) throw SystemError(path);
  std::fprintf(file, "%s\n", kHeading);
}

LedgerWriter::~LedgerWriter() {
  if (file != nullptr) std::fclose(file);
}

void LedgerWriter::Add(const std::vector<LedgerEntry>& entries) {
  for (const auto& entry : entries) {
    std::fprintf(file,
                 "%08" PRIX32 " %" PRId64 " %u %u %" PRIu32 " %016" PRIx64 " %016" PRIx64 "\n",
                 entry.provider, entry.utcMs, entry.type, entry.flags, entry.size,
                 entry.payloadHash, entry.metadataHash);
  }
}

void LedgerWriter::Finish() {
  const bool failed = std::ferror(file) != 0;
  const bool closed = std::fclose(file) == 0;
  file = nullptr;
  if (failed || !closed) throw SystemError(path);
}

std::map<std::uint32_t, std::vector<LedgerEntry>> ReadLedger(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line) || line != kHeading) {
    throw std::runtime_error(path + " is no ledger of given frames");
  }
  std::map<std::uint32_t, std::vector<LedgerEntry>> given;
  while (std::getline(file, line)) {
    LedgerEntry entry;
    unsigned type = 0, flags = 0;
    if (std::sscanf(line.c_str(), "%" SCNx32 " %" SCNd64 " %u %u %" SCNu32 " %" SCNx64 " %" SCNx64,
                    &entry.provider, &entry.utcMs, &type, &flags, &entry.size, &entry.payloadHash,
                    &entry.metadataHash) != 7) {
      throw std::runtime_error((path + ": not a frame: ").append(line));
    }
    entry.type = static_cast<std::uint8_t>(type);
    entry.flags = static_cast<std::uint8_t>(flags);
    given[entry.provider].push_back(entry);
  }
  return given;
}

LedgerCheck::LedgerCheck(const std::string& path) {
  for (auto& [provider, entries] : ReadLedger(path)) given[provider].entries = std::move(entries);
}

void LedgerCheck::Note(const LedgerEntry& played, const char* what) {
  if (!outcome.first.empty()) return;
  std::array<char, 16> provider{};
  std::snprintf(provider.data(), provider.size(), "%08" PRIX32, played.provider);
  outcome.first.append("frame of ").append(provider.data()).append(" at ");
  outcome.first.append(TimeText(played.utcMs)).append(", ").append(std::to_string(played.size));
  outcome.first.append(" bytes: ").append(what);
}

void LedgerCheck::Take(const LedgerEntry& played) {
  auto& track = given[played.provider];
  const auto from = track.entries.begin() + static_cast<std::ptrdiff_t>(track.next);
  const auto found = std::find_if(from, track.entries.end(), [&](const LedgerEntry& entry) {
    return entry.utcMs >= played.utcMs;
  });
  if (found == track.entries.end() || found->utcMs != played.utcMs) {
    ++outcome.unknown;
    Note(played, "not among the given ones");
    return;
  }
  if (track.begun) outcome.missing += static_cast<std::uint64_t>(found - from);
  track.begun = true;
  track.next = static_cast<std::size_t>(found - track.entries.begin()) + 1;
  // The plug-in may add flags of its own.
  const bool same = found->type == played.type && found->size == played.size &&
                    found->payloadHash == played.payloadHash &&
                    found->metadataHash == played.metadataHash &&
                    (found->flags & ~played.flags) == 0;
  if (same) {
    ++outcome.same;
  } else {
    ++outcome.different;
    Note(played, "not what was given");
  }
}

}  // namespace nvrhost

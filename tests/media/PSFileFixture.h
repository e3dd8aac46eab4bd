#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "tests/support/FaultyFiles.h"
#include "tests/support/PsParser.h"
#include "tests/support/Recordings.h"
#include "tests/support/TempTree.h"

namespace qv::kelvo {

// "00 01 AB" of bytes.
inline std::string Hex(ConstBytes bytes) {
  std::string text;
  for (const std::byte b : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X ", std::to_integer<unsigned>(b));
    text += digits;
  }
  if (!text.empty()) text.pop_back();
  return text;
}
inline ConstBytes AsBytes(const std::string& text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

constexpr char kMedia[] = "0640-100101FF.ps", kIndex[] = "0640-100101FF.psi";

// A directory for one recording of a device, and frames for it.
class PSFileTest : public testing::Test {
 protected:
  PSFileTest() { info.fileInput[0] = 0xFF; }

  // A frame whose payload is `payload` and whose time is 2025-06-15 15:06:40 UTC + `ms`.
  // The payload lives as long as the test.
  PSFrame Frame(std::uint16_t stream, std::uint16_t type, UtcMs ms, std::string payload) {
    return MakeFrame(stream, type, 1'750'000'000'000 + ms,
                     payloads.emplace_back(std::move(payload)));
  }

  [[nodiscard]] int Create(std::uint64_t preallocate = 0) {
    return file.Create(path, info, descriptors, preallocate);
  }
  [[nodiscard]] testsupport::PsRecording Read(
      testsupport::PsEnd end = testsupport::PsEnd::Closed) const {
    auto recording = testsupport::ReadPs(path, end);
    for (const auto& fault : recording.faults) ADD_FAILURE() << fault;
    return recording;
  }
  std::string HexOf(const char* name, std::size_t offset, std::size_t size) const {
    return Hex(AsBytes(tree.Read(name).substr(offset, size)));
  }

  TempTree tree;
  std::deque<std::string> payloads;
  FaultyFiles files{SystemPlatform().mediaFiles};
  PsFileInfo info;
  PsStreams descriptors = AllStreams();
  PSFile file{files};
  std::string path = tree.Path(kMedia);
};

}  // namespace qv::kelvo

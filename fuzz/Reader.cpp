// The reader over an index and a media file, or the media file alone.

#include <vector>

#include "fuzz/Memory.h"
#include "tree/CFileInfo.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qv::kelvo;
  static std::vector<std::byte> packet(4'194'303);
  fuzz::MemoryFiles files;
  files.recording = fuzz::Recording(data, size, 0);
  PSReader reader(files);
  CFileInfo info;
  info.path = "0640-100101FF.ps";
  if (!FillStreamRows(reader, info)) return 0;
  std::array<std::byte, 128> userData;
  const std::uint32_t masks[] = {0xFFFFFFFF, 0x00010001};
  for (const std::uint32_t mask : masks) {
    const std::uint32_t total = std::min(reader.CountFrames(mask), 2000u);
    for (std::uint32_t n = 0; n < 2 * total; ++n) {
      PSReadFrame frame;
      frame.index = n < total ? n : 2 * total - n - 1;
      frame.packet = packet;
      frame.userData = userData;
      if (reader.NextFrame(frame, mask) != kPsOk) break;
    }
  }
  for (std::uint16_t stream = 0; stream < kStreamCount; ++stream) {
    PSReadFrame frame;
    frame.stream = stream;
    frame.index = reader.GetFrameCount(stream) - 1;
    (void)reader.GetFrame(frame);
  }
  PSRun run;
  for (std::uint32_t n = 0; n <= reader.GetRunCount() && reader.GetRun(n, run) == kPsOk;) ++n;
  (void)reader.SeekTime(1'750'000'003);
  return 0;
}

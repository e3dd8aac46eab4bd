// Whole searches over one file of an existing hour: listing and playback of what the input holds.
// The first bytes choose the mode, the range and the resolution.

#include <boost/filesystem.hpp>

#include "fuzz/Memory.h"
#include "platform/Platform.h"
#include "search/Search.h"

namespace {

struct Core : qvsvr::kelvo::ICoreEventer {
  std::uint32_t SendHostMessage(const KelvoHostRequest& request, KelvoHostReply& reply) override {
    const auto* bytes = static_cast<const unsigned char*>(request.Payload);
    for (std::uint32_t n = 0; n < request.Length; ++n) sum += bytes[n];
    reply.Status = --left == 0 ? 1 : 0;  // a host that has had enough
    return 0;
  }
  void SendXmlEvent(const std::string&, std::uint32_t) override {}
  void DecrementReference(void*) override {}
  std::uint32_t GetCoreTime(std::int64_t&, std::uint16_t&) override { return 0; }
  bool IsStopping() const override { return false; }
  unsigned sum = 0, left = 5000;
};

struct Volume : qv::kelvo::FileSystemBase {
  using FileSystemBase::FileSystemBase;
  void GetVolumes(std::vector<std::string>& list, std::uint32_t flags,
                  const qv::kelvo::ArchiveFilter*) override {
    list.clear();
    if ((flags & qv::kelvo::kVolumesLocal) != 0) list = {root};
  }
  const std::string root = boost::filesystem::temp_directory_path().string() + "/kelvofuzz/";
};

struct OneFile : qv::kelvo::Directories {
  std::uint64_t ChangeStamp(const std::string&) override { return 0; }
  int List(const std::string&, std::string_view, qv::kelvo::ListSizes,
           const std::function<bool(const qv::kelvo::DirectoryEntry&)>& visit) override {
    visit({"0640-001100FF.ps", false, 0});
    return 0;
  }
};

std::string Request(const std::uint8_t* options) {
  const int start = 1'750'000'000 - 300 + options[1] * 3;
  const std::string input = (options[0] & 4) == 0 ? "<Input Number='0'/><Input Number='1'/>"
                                                  : "<Input Number='0'><Request Frame='" +
                                                        std::to_string(start + 5) + "'/></Input>";
  return "<qDVR Type='" + std::to_string(options[0] & 1) + "' Start='" + std::to_string(start) +
         "' End='" + std::to_string(start + options[2] * 4) + "' Resolution='" +
         std::to_string(options[3]) + "'><Devices ID='1114112'><Device Number='0'><Video>" + input +
         "</Video><Audio><Input Number='0'/></Audio></Device></Devices></qDVR>";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace qv::kelvo;
  if (size < 6) return 0;
  static fuzz::MemoryFiles files;
  static OneFile directory;
  static Platform platform{
      SystemPlatform().clock,        SystemPlatform().drives,  directory, files,
      SystemPlatform().durableFiles, SystemPlatform().diskSync};
  static Volume volume(platform);
  static const bool made =
      boost::filesystem::create_directories(HourDirectory(volume.root, 1'750'000'000'000));
  (void)made;
  files.recording = fuzz::Recording(data, size, 4);
  Core core;
  qvsvr::kelvo::SearchTargetFileSystem target(volume, platform);
  return static_cast<int>(qvsvr::kelvo::Search(Request(data), 1, target, core));
}

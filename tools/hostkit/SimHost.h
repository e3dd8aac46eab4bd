#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "hostkit/HostEnd.h"

namespace hostkit {

// A host process in small: loads the plug-in and hands it blocks. Used by nvrhost and the black-box
// tests. Thread-safe except for Load to Unload themselves, which the owner calls in order.
class SimHost : public HostEnd {
 public:
  // Loads the module and finds its eight exports; throws std::runtime_error with the reason.
  explicit SimHost(const std::string& modulePath);
  // Unloads the plug-in if it is loaded, then the module.
  ~SimHost() override;

  void Load();
  void Open();
  void Close();
  void Unload();

  // --- Blocks. Each returns whether the plug-in accepted; if not, the buffer is released here.
  // `header` is copied.
  bool WriteFrame(std::uint32_t provider, const KelvoFrameHeader& header, std::byte* buffer,
                  std::uint32_t length, std::uint32_t subCode = 0);
  // XML by Write with KELVO_WRITE_ACTION or KELVO_WRITE_PTZ.
  bool WriteXml(std::uint32_t writeClass, std::string_view xml);
  // XML by IOCTL with KELVO_IOCTL_CONFIGURATION or KELVO_IOCTL_SYSTEM.
  bool Ioctl(std::uint32_t operation, std::string_view xml);
  // A search, on this thread: what it finds comes to onSearch before this returns.
  void Read(std::string_view requestXml, std::uint32_t requestId);
  // Raw exports, for tests of the blocks themselves.
  struct Exports {
    KelvoExport Load, Open, Read, Write, Seek, IOCTL, Close, Unload;
  };
  [[nodiscard]] const Exports& Raw() const { return exports; }
  // Another exported symbol, or null.
  [[nodiscard]] void* Symbol(const char* name) const;

 private:
  struct Module;
  bool WriteBlock(const KelvoWriteBlock& block);

  std::unique_ptr<Module> module;
  Exports exports{};
  bool loaded = false;
};

}  // namespace hostkit

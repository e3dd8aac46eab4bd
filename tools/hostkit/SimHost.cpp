#include "hostkit/SimHost.h"

#include <boost/dll/shared_library.hpp>
#include <stdexcept>

namespace hostkit {
namespace {

constexpr std::uint32_t kReplyUntouched = 0xEEEEEEEE;

}  // namespace

struct SimHost::Module {
  boost::dll::shared_library library;
};

SimHost::SimHost(const std::string& modulePath) : module(std::make_unique<Module>()) {
  try {
    module->library.load(boost::filesystem::path(modulePath),
                         boost::dll::load_mode::rtld_now | boost::dll::load_mode::rtld_local);
  } catch (const std::exception& error) {
    throw std::runtime_error("can't load " + modulePath + ": " + error.what());
  }
  const struct {
    const char* name;
    KelvoExport& function;
  } wanted[] = {{"Load", exports.Load},   {"Open", exports.Open},    {"Read", exports.Read},
                {"Write", exports.Write}, {"Seek", exports.Seek},    {"IOCTL", exports.IOCTL},
                {"Close", exports.Close}, {"Unload", exports.Unload}};
  for (const auto& one : wanted) {
    if (!module->library.has(one.name)) {
      throw std::runtime_error(modulePath + " doesn't export " + one.name);
    }
    one.function = &module->library.get<std::uint32_t(void*, void*)>(one.name);
  }
}

SimHost::~SimHost() {
  if (loaded) Unload();
  module->library.unload();
}

void SimHost::Load() {
  KelvoLoadInput input{};
  KelvoModuleDescriptor descriptor{};
  input.HostFunction = &SimHost::HostFunction;
  exports.Load(&input, &descriptor);
  loaded = true;
}

void SimHost::Open() {
  exports.Open(nullptr, nullptr);
}

void SimHost::Close() {
  exports.Close(nullptr, nullptr);
}

void SimHost::Unload() {
  exports.Unload(nullptr, nullptr);
  loaded = false;
}

bool SimHost::WriteBlock(const KelvoWriteBlock& block) {
  KelvoWriteReply reply{};
  reply.Result = kReplyUntouched;
  reply.Accepted = kReplyUntouched;
  exports.Write(const_cast<KelvoWriteBlock*>(&block), &reply);
  if (reply.Accepted == 1) return true;
  Release(block.Payload);
  return false;
}

bool SimHost::WriteFrame(std::uint32_t provider, const KelvoFrameHeader& header, std::byte* buffer,
                         std::uint32_t length, std::uint32_t subCode) {
  KelvoWriteBlock block{};
  block.Length = length;
  block.Payload = buffer;
  block.Source = provider;
  block.Class = KELVO_WRITE_FRAME;
  block.SubCode = subCode;
  block.Header = header;
  return WriteBlock(block);
}

bool SimHost::WriteXml(std::uint32_t writeClass, std::string_view xml) {
  KelvoWriteBlock block{};
  block.Length = static_cast<std::uint32_t>(xml.size() + 1);
  block.Payload = NewBuffer(std::string(xml) + '\0');
  block.Class = writeClass;
  return WriteBlock(block);
}

bool SimHost::Ioctl(std::uint32_t operation, std::string_view xml) {
  KelvoIoctlBlock block{};
  block.Operation = operation;
  block.Length = static_cast<std::uint32_t>(xml.size() + 1);
  block.Payload = NewBuffer(std::string(xml) + '\0');
  KelvoIoctlReply reply{};
  reply.Accepted = kReplyUntouched;
  exports.IOCTL(&block, &reply);
  if (reply.Accepted == 1) return true;
  Release(block.Payload);
  return false;
}

void SimHost::Read(std::string_view requestXml, std::uint32_t requestId) {
  KelvoReadBlock block{};
  block.Length = static_cast<std::uint32_t>(requestXml.size());
  block.Payload = requestXml.data();
  block.RequestId = requestId;
  KelvoReadReply reply{};
  exports.Read(&block, &reply);
}

void* SimHost::Symbol(const char* name) const {
  return module->library.has(name) ? &module->library.get<char>(name) : nullptr;
}

}  // namespace hostkit

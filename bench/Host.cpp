#include "bench/Host.h"

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <semaphore>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace bench {
namespace {

constexpr std::uint32_t kOwner = 0x00110000;  // ID of the Devices element
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();

std::atomic<std::int64_t> released{0};
std::atomic<std::int64_t> wakeAt{kNever};
std::binary_semaphore wake{0};

// A message that the worker releases when everything before it has been handled.
char marker[] = "<qDVR/>";
std::binary_semaphore markerReleased{0};
const void* documentBuffer = nullptr;

bool ownBuffers = false;

// Of the search that runs, null otherwise.
const std::function<std::uint32_t(const KelvoHostRequest&)>* searchEvents = nullptr;
const std::string* countedStart = nullptr;
int countedLines = 0;

void ReleasePayload(const void* payload) {
  if (ownBuffers) std::free(const_cast<void*>(payload));
  Outstanding::Released();
}

void AwaitRelease(std::binary_semaphore& signal) {
  if (!signal.try_acquire_for(std::chrono::seconds(60)))
    throw std::runtime_error("the plug-in doesn't release what it was given");
}

void TakeLine(const char* line) {
  if (countedStart == nullptr) {
    std::fprintf(stderr, "plug-in: %s\n", line);
  } else if (std::string_view(line).starts_with(*countedStart)) {
    ++countedLines;
  }
}

std::uint32_t HostFunction(const KelvoHostRequest* request, KelvoHostReply* reply) {
  if (request->Class == KELVO_CLASS_SEARCH && searchEvents != nullptr) {
    reply->Status = (*searchEvents)(*request);
  } else if (request->Class == KELVO_CLASS_RELEASE) {
    if (request->Payload == marker) {
      markerReleased.release();
    } else if (request->Payload != documentBuffer) {
      ReleasePayload(request->Payload);
    }
  } else if (request->Class == KELVO_CLASS_LOG) {
    if (request->SubCode == KELVO_SUB_LOG_LEVEL) {
      reply->Status = countedStart == nullptr ? KELVO_LOG_WARNING : KELVO_LOG_TRACE;
    } else {
      TakeLine(static_cast<const char*>(request->Payload));
    }
  }
  return 0;
}

void AppendDevice(std::ostream& xml, int camera, int channels) {
  xml << "<Device Number=\"" << camera << "\"><Video>";
  for (int channel = 0; channel < channels; ++channel) {
    xml << "<Input Number=\"" << channel << "\" Name=\"Camera\"><Schedule>"
        << "<Entry FirstHour=\"0\" LastHour=\"167\" Record=\"2\"/></Schedule></Input>";
  }
  xml << "</Video><Codec><Encoder Number=\"0\">";
  for (int channel = 0; channel < channels; ++channel) {
    xml << "<Channel Number=\"" << channel << "\" Standard=\"2\" Width=\"640\" Height=\"480\"/>";
  }
  xml << "</Encoder></Codec></Device>";
}

void AppendPreAlarm(std::ostream& xml, const Cameras& cameras) {
  xml << "<Events ID=\"" << KELVO_MODULE_EVENTS << "\"><Event PreAlarm=\""
      << cameras.preAlarmSeconds << "\"><Action><Devices ID=\"" << kOwner << "\">";
  for (int camera = 0; camera < cameras.count; ++camera) {
    xml << "<Device Number=\"" << camera << "\"><Video>";
    for (int channel = 0; channel < cameras.channels; ++channel) {
      xml << "<Input Number=\"" << channel << "\"/>";
    }
    xml << "</Video></Device>";
  }
  xml << "</Devices></Action></Event></Events>";
}

std::string ConfigurationXml(const Cameras& cameras) {
  std::ostringstream xml;
  xml << "<qDVR Delta=\"0\"><Devices ID=\"" << kOwner << "\">";
  for (int camera = 0; camera < cameras.count; ++camera) {
    AppendDevice(xml, camera, cameras.channels);
  }
  xml << "</Devices>";
  if (cameras.preAlarmSeconds > 0) AppendPreAlarm(xml, cameras);
  xml << "</qDVR>";
  return xml.str();
}

}  // namespace

std::uint32_t Provider(int camera, int channel) {
  return kOwner | static_cast<std::uint32_t>(camera) << 8 | static_cast<std::uint32_t>(channel);
}

std::int64_t Outstanding::given = 0;

void Outstanding::Released() {
  const std::int64_t count = released.fetch_add(1) + 1;
  if (count >= wakeAt.load() && wakeAt.exchange(kNever) != kNever) wake.release();
}

void Outstanding::Throttle(std::int64_t limit) {
  if (Count() < limit) return;
  const std::int64_t target = given - (limit - kSlack);
  wakeAt.store(target);
  // Whoever takes the wish back first settles whether there is a wake-up to wait for.
  if (released.load() >= target && wakeAt.exchange(kNever) != kNever) return;
  AwaitRelease(wake);
}

std::int64_t Outstanding::Count() {
  return given - released.load();
}

void* OwnBuffer(const void* data, std::size_t size) {
  ownBuffers = true;
  void* buffer = std::malloc(size);
  if (buffer == nullptr) throw std::bad_alloc();
  std::memcpy(buffer, data, size);
  return buffer;
}

std::uint32_t NullWrite(void* block, void*) {
  ReleasePayload(static_cast<KelvoWriteBlock*>(block)->Payload);
  return 0;
}

PluginHost::PluginHost(const std::string& module)
    : library(dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (library == nullptr) throw std::runtime_error(dlerror());
  load = Find("Load");
  open = Find("Open");
  read = Find("Read");
  write = Find("Write");
  ioctl = Find("IOCTL");
  close = Find("Close");
  unload = Find("Unload");
}

PluginHost::~PluginHost() {
  dlclose(library);
}

KelvoExport PluginHost::Find(const char* name) const {
  void* symbol = dlsym(library, name);
  if (symbol == nullptr) throw std::runtime_error(std::string("the module has no ") + name);
  return reinterpret_cast<KelvoExport>(symbol);
}

void PluginHost::Start(const Cameras& cameras) {
  KelvoLoadInput input{};
  input.HostFunction = HostFunction;
  KelvoModuleDescriptor descriptor{};
  load(&input, &descriptor);
  open(nullptr, nullptr);
  Configure(ConfigurationXml(cameras));
}

void PluginHost::Configure(const std::string& xml) {
  document = xml;
  documentBuffer = document.data();
  KelvoIoctlBlock block{};
  block.Operation = KELVO_IOCTL_CONFIGURATION;
  block.Length = static_cast<std::uint32_t>(document.size() + 1);
  block.Payload = document.data();
  KelvoIoctlReply reply{};
  ioctl(&block, &reply);
  if (reply.Accepted != 1) throw std::runtime_error("the configuration was refused");
  Drain();
}

void PluginHost::Act(const std::string& xml) {
  document = xml;
  documentBuffer = document.data();
  KelvoWriteBlock block{};
  block.Length = static_cast<std::uint32_t>(document.size() + 1);
  block.Payload = document.data();
  block.Class = KELVO_WRITE_ACTION;
  KelvoWriteReply reply{};
  write(&block, &reply);
  if (reply.Accepted != 1) throw std::runtime_error("the action was refused");
  Drain();
}

void PluginHost::Drain() {
  KelvoWriteBlock block{};
  block.Length = sizeof marker;
  block.Payload = marker;
  block.Class = KELVO_WRITE_PTZ;
  KelvoWriteReply reply{};
  write(&block, &reply);
  if (reply.Accepted != 1) throw std::runtime_error("the marker was refused");
  AwaitRelease(markerReleased);
}

void PluginHost::Read(const std::string& request,
                      const std::function<std::uint32_t(const KelvoHostRequest&)>& hear) {
  KelvoReadBlock block{};
  block.Length = static_cast<std::uint32_t>(request.size());
  block.Payload = request.data();
  block.RequestId = 1;
  KelvoReadReply reply{};
  searchEvents = &hear;
  read(&block, &reply);
  searchEvents = nullptr;
}

int PluginHost::CountLines(const std::string& request, const std::string& start) {
  countedLines = 0;
  countedStart = &start;
  Read(request, [](const KelvoHostRequest&) { return 0u; });
  countedStart = nullptr;
  return countedLines;
}

void PluginHost::Stop() {
  close(nullptr, nullptr);
  unload(nullptr, nullptr);
}

}  // namespace bench

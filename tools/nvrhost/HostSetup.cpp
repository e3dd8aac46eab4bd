#include "nvrhost/HostSetup.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <csignal>
#include <stdexcept>

namespace nvrhost {
namespace {
namespace fs = boost::filesystem;

volatile std::sig_atomic_t interrupted = 0;

}  // namespace

std::string FindPlugin(const std::string& option, const std::string& programPath) {
  const fs::path programs = fs::canonical(programPath).parent_path();
  fs::path plugin = option.empty() ? programs / KELVO_MODULE : fs::absolute(option);
  if (option.empty() && !fs::exists(plugin)) {
    plugin = programs.parent_path() / KELVO_INSTALLED_MODULE;
  }
  if (!fs::is_regular_file(plugin)) {
    throw std::runtime_error("no plug-in at " + plugin.string() + " (--plugin says where it is)");
  }
  return plugin.string();
}

void EnterForRecording(const std::string& directory) {
  const fs::path drives = fs::absolute(directory) / "drives";
  fs::create_directories(drives);
  bool any = false;
  for (const auto& entry : fs::directory_iterator(drives)) any = any || fs::is_directory(entry);
  if (!any) fs::create_directory(drives / "disk1");
  fs::current_path(drives.parent_path());
}

void EnterRecorded(const std::string& directory) {
  const fs::path path = fs::absolute(directory);
  if (!fs::is_directory(path / "drives")) {
    throw std::runtime_error("no recordings: " + (path / "drives").string() + " doesn't exist");
  }
  fs::current_path(path);
}

void ConfigureStorage(hostkit::SimHost& host, const StorageOptions& options,
                      const std::vector<hostkit::CameraConfig>& cameras,
                      const std::string& configuration) {
  const auto settings = SettingsOf(options, (fs::current_path() / "drives").string());
  bool taken =
      settings.Empty() || host.Ioctl(KELVO_IOCTL_CONFIGURATION, hostkit::StorageDelta(settings));
  // Ahead of the cameras, whose files may make room as soon as they open.
  const auto bookmarks = WithBookmarksOf(options, "<qDVR/>", cameras);
  taken = taken && host.Ioctl(KELVO_IOCTL_CONFIGURATION, bookmarks) &&
          host.Ioctl(KELVO_IOCTL_CONFIGURATION, configuration);
  for (std::size_t i = 0; taken && i < options.reserveGB.size(); ++i) {
    taken = host.WriteXml(KELVO_WRITE_ACTION,
                          hostkit::ReserveAction(ReservationKey(i), options.reserveGB[i]));
  }
  if (!taken) throw std::runtime_error("the plug-in refused its configuration");
}

void CatchInterrupts() {
  std::signal(SIGINT, [](int) { interrupted = 1; });
  std::signal(SIGTERM, [](int) { interrupted = 1; });
}

bool Interrupted() {
  return interrupted != 0;
}

Listener::Listener(hostkit::SimHost& simHost, Console& toConsole, std::uint32_t lowestShown,
                   bool withEvents)
    : host(simHost), console(toConsole), shownLevel(lowestShown), showEvents(withEvents) {
  host.SetThreshold(std::min<std::uint32_t>(shownLevel, KELVO_LOG_WARNING));
  host.onLog = [this](const hostkit::SimHost::LogLine& line) { TakeLog(line); };
  host.onEvent = [this](const hostkit::SimHost::Event& event) { TakeEvent(event); };
}

Listener::~Listener() {
  host.Unload();
  host.onLog = nullptr;
  host.onEvent = nullptr;
}

std::size_t Listener::Files() const {
  const std::lock_guard guard(lock);
  return files.size();
}

void Listener::TakeLog(const hostkit::SimHost::LogLine& line) {
  if (line.level >= KELVO_LOG_ERROR) {
    ++errors;
  } else if (line.level >= KELVO_LOG_WARNING) {
    ++warnings;
  }
  if (line.level < shownLevel) return;
  const char* const name = line.level >= KELVO_LOG_CRITICAL  ? "critical"
                           : line.level >= KELVO_LOG_ERROR   ? "error"
                           : line.level >= KELVO_LOG_WARNING ? "warning"
                           : line.level >= KELVO_LOG_INFO    ? "info"
                                                             : "trace";
  console.ErrorLine(std::string("kelvo ") + name + ": " + line.text);
}

// An event of an input that begins or ends to be recorded names the file.
void Listener::TakeEvent(const hostkit::SimHost::Event& event) {
  if (showEvents) console.ErrorLine("event " + event.text);
  for (const auto& news : drives.Take(event)) console.ErrorLine(news);
  const std::string attribute = "Path=\"";
  const auto begin = event.text.find(attribute);
  if (begin == std::string::npos) return;
  const auto from = begin + attribute.size();
  const std::lock_guard guard(lock);
  files.insert(event.text.substr(from, event.text.find('"', from) - from));
}

}  // namespace nvrhost

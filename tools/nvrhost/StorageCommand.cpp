#include "nvrhost/StorageCommand.h"

#include <boost/filesystem.hpp>
#include <stdexcept>

#include "hostkit/ConfigXml.h"
#include "nvrhost/Console.h"
#include "nvrhost/HostSetup.h"
#include "nvrhost/OptionGroup.h"
#include "nvrhost/QueueEnd.h"

namespace nvrhost {

void AddStorageCommandOptions(CLI::App& command, StorageCommandOptions& options) {
  OptionGroup run(command, "Run");
  AddPluginOption(command, "Run", options.plugin);
  run.AddShown("--dir", options.directory, "DIR", "directory that was or will be recorded in");
  AddLogOption(command, "Run", options.logLevel);
  command.add_flag("--events", options.events, "show the plug-in's XML events")->group("Run");
  AddStorageOptions(command, options.storage, CameraRules::No);
}

int Storage(const StorageCommandOptions& options, const std::string& programPath) {
  Console console;
  hostkit::SimHost host(FindPlugin(options.plugin, programPath));
  Listener listener(host, console, LogLevel(options.logLevel), options.events);
  QueueEnd queueEnd(host);
  EnterForRecording(options.directory);
  host.Load();
  host.Open();
  ConfigureStorage(host, options.storage, {}, "<qDVR/>");
  if (!queueEnd.Wait()) throw std::runtime_error("the plug-in didn't answer");
  host.Close();
  host.Unload();
  for (const auto& line : listener.drives.Table()) console.Line(line);
  return listener.drives.AnyAlarm() ? 1 : 0;
}

}  // namespace nvrhost

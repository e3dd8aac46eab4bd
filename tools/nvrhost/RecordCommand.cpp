#include "nvrhost/RecordCommand.h"

#include <boost/filesystem.hpp>
#include <chrono>
#include <stdexcept>

#include "hostkit/SimHost.h"
#include "nvrhost/Cameras.h"
#include "nvrhost/Console.h"
#include "nvrhost/Feeder.h"
#include "nvrhost/HostSetup.h"
#include "nvrhost/Ledger.h"
#include "nvrhost/Multiplex.h"
#include "nvrhost/OptionGroup.h"
#include "nvrhost/QueueEnd.h"
#include "nvrhost/Report.h"
#include "nvrhost/Summary.h"

namespace nvrhost {
namespace {

namespace fs = boost::filesystem;
using Steady = std::chrono::steady_clock;

constexpr auto kProgressEvery = std::chrono::milliseconds(250);

double SecondsSince(Steady::time_point begin) {
  return std::chrono::duration<double>(Steady::now() - begin).count();
}

void Configure(hostkit::SimHost& host, const RecordOptions& options, const CameraSet& set) {
  const auto send = [&host](const std::string& xml) {
    if (!host.Ioctl(KELVO_IOCTL_CONFIGURATION, xml)) {
      throw std::runtime_error("the plug-in refused its configuration");
    }
  };
  if (options.timeLapseMs > 0) send(hostkit::TimeLapseDelta(options.timeLapseMs));
  ConfigureStorage(host, options.storage, set.configs,
                   Multiplex(hostkit::FullConfiguration(set.configs, options.preAlarmSeconds),
                             options.channelsPerDevice));
}

void ShowProgress(Console& console, const Feeder& feeder, const Listener& listener,
                  double elapsed) {
  std::array<char, 160> text{};
  std::snprintf(text.data(), text.size(), "%7.1f s  %9llu frames  %10s  %4zu files", elapsed,
                static_cast<unsigned long long>(feeder.Frames()), SizeText(feeder.Bytes()).c_str(),
                listener.Files());
  std::string line = text.data();
  const double capture = feeder.CaptureSeconds();
  if (elapsed > 0 && capture > 2 * elapsed) {
    std::snprintf(text.data(), text.size(), "  %.0f s captured", capture);
    line += text.data();
  }
  console.Progress(line, elapsed);
}

// Gives everything to the plug-in and waits until it has worked through it, or until the user
// stops.
void Feed(Feeder& feeder, bool fullSpeed, QueueEnd& queueEnd, Console& console,
          const Listener& listener) {
  const auto begin = Steady::now();
  fullSpeed ? feeder.StartAtFullSpeed() : feeder.StartRealtime();
  while (!feeder.WaitDone(kProgressEvery)) {
    ShowProgress(console, feeder, listener, SecondsSince(begin));
    if (Interrupted()) feeder.Stop();
  }
  feeder.Join();
  if (!queueEnd.Wait()) {
    console.ErrorLine("the plug-in didn't work through its queue in " +
                      std::to_string(kDrainSeconds) + " s");
  }
  ShowProgress(console, feeder, listener, SecondsSince(begin));
  console.EndProgress();
}

}  // namespace

int Record(RecordOptions options, const std::string& programPath) {
  Console console;
  const Scenario scenario = MakeScenario(options);
  if (options.source != "test" && !fs::exists(options.source)) {
    throw std::runtime_error("no file " + options.source + " (--source)");
  }
  hostkit::SimHost host(FindPlugin(options.plugin, programPath));
  Listener listener(host, console, LogLevel(options.logLevel), options.events);
  QueueEnd queueEnd(host);
  auto set = MakeCameras(options, console);
  if (!options.ledger.empty()) options.ledger = fs::absolute(options.ledger).string();
  ApplyCameraRules(options.storage, set.configs);
  for (auto& camera : set.cameras) camera.keepsLedger = !options.ledger.empty();
  EnterForRecording(options.directory);
  const std::string drives = (fs::current_path() / "drives").string();
  const WrittenFiles written(drives);

  CatchInterrupts();
  host.Load();
  host.Open();
  Configure(host, options, set);

  RunTotals totals;
  const auto begin = Steady::now();
  console.Line("recording " + std::to_string(options.cameras) +
               (options.cameras == 1 ? " camera" : " cameras") + " into " + drives);
  {
    Feeder feeder(host, set.cameras, scenario,
                  MessagesOf(scenario, set.configs, options.channelsPerDevice),
                  options.metadataBytes);
    Feed(feeder, options.FullSpeed(), queueEnd, console, listener);
    totals.payloadBytes = feeder.Bytes();
  }
  totals.undecided = queueEnd.Held();
  host.Close();
  host.Unload();
  totals.seconds = SecondsSince(begin);
  totals.outstanding = host.Outstanding();
  totals.badReleases = host.BadReleases();
  totals.warnings = listener.warnings;
  totals.errors = listener.errors;

  if (!options.ledger.empty()) {
    LedgerWriter ledger(options.ledger);
    for (const auto& camera : set.cameras) ledger.Add(camera.ledger);
    ledger.Finish();
  }
  if (options.driveTable) {
    for (const auto& line : listener.drives.Table()) console.Line(line);
  }
  const auto files = written.Read();
  if (options.report) PrintTree(files, fs::current_path().string());
  return PrintSummary(set.cameras, files, totals) ? 0 : 1;
}

}  // namespace nvrhost

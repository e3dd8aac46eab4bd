#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "nvrhost/Scenario.h"
#include "nvrhost/StorageOptions.h"

namespace nvrhost {

// What the user asked of `nvrhost record`.
struct RecordOptions {
  std::string plugin;  // empty: beside this program
  std::string directory = "nvrdata";
  int cameras = 1;
  int channelsPerDevice = 1;

  std::string source = "test";
  std::vector<std::string> codecs{"h264"};
  std::vector<std::string> audio{"none"};
  double fps = 25;
  std::string size = "640x480";
  int group = 25;
  int bFrames = 2;
  int kilobits = 0;
  double loopSeconds = 10;
  int distinct = 16;
  int metadataBytes = 0;

  double seconds = 20;
  std::string speed = "realtime";
  std::string start;

  std::string record = "always";
  std::string motion;
  int preMotionMs = 0, postMotionMs = 0;
  std::vector<std::string> alarms;
  int preAlarmSeconds = 0;
  int timeLapseMs = 0;
  std::vector<std::string> ptz;

  std::string logLevel = "warning";
  bool events = false;
  bool report = false;
  std::string ledger;  // file that tells what was given; empty: none

  StorageOptions storage;
  bool driveTable = false;

  // Out of `size`.
  int width = 0, height = 0;
  [[nodiscard]] bool FullSpeed() const { return speed == "max"; }
};

// Adds the options to a subcommand; values are checked while it parses.
void AddRecordOptions(CLI::App& command, RecordOptions& options);

// The scenario that the options describe. Completes `options` where a value is made of others.
// Throws std::runtime_error with a message for the user.
[[nodiscard]] Scenario MakeScenario(RecordOptions& options);

}  // namespace nvrhost

// nvrhost: a simulated host. It loads the real plug-in, behaves to it as a recording server's core
// process does, and shows what came of it.

#include <CLI/CLI.hpp>
#include <boost/filesystem.hpp>
#include <cstdio>

#include "nvrhost/Ffmpeg.h"
#include "nvrhost/RecordCommand.h"
#include "nvrhost/Report.h"

namespace {

constexpr int kFailed = 2;

struct ShowOptions {
  std::string path;
  bool csv = false;
};

int Show(const ShowOptions& options) {
  namespace fs = boost::filesystem;
  std::vector<nvrhost::RecordingFile> files;
  const fs::path path(options.path);
  if (!fs::exists(path)) throw std::runtime_error("no directory or file " + options.path);
  const bool directory = fs::is_directory(path);
  if (directory) {
    for (const auto& found : nvrhost::FindRecordings(path.string())) {
      files.push_back(nvrhost::ReadRecording(found));
    }
  } else {
    files.push_back(nvrhost::ReadRecording(path.string()));
  }
  if (options.csv) {
    nvrhost::PrintCsv(files);
  } else {
    nvrhost::PrintTree(files, directory ? path.string() : path.parent_path().string());
  }
  for (const auto& file : files) {
    if (!file.fault.empty()) return 1;
  }
  return 0;
}

int Run(int argc, char** argv) {
  CLI::App app("A simulated host for the kelvo plug-in.\n");
  app.require_subcommand(1);
  constexpr std::size_t kHelpColumn = 34;
  app.get_formatter()->column_width(kHelpColumn);
  app.failure_message(CLI::FailureMessage::simple);

  nvrhost::RecordOptions record;
  auto* const recordCommand = app.add_subcommand(
      "record", "give cameras' frames to the plug-in and count what became of them");
  nvrhost::AddRecordOptions(*recordCommand, record);
  recordCommand->footer(
      "Ends with 0 if all buffers came back and the files add up, 1 if not, 2 if it couldn't run.");

  ShowOptions show;
  auto* const showCommand =
      app.add_subcommand("show", "what the recordings below a directory hold (changes nothing)");
  showCommand->add_option("path", show.path, "directory, or one .ps file")->required();
  showCommand->add_flag("--csv", show.csv, "a line for each stream, for scripts");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kFailed;
  }
  return recordCommand->parsed() ? nvrhost::Record(record, "/proc/self/exe") : Show(show);
}

}  // namespace

int main(int argc, char** argv) {
  av_log_set_level(AV_LOG_ERROR);
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "nvrhost: %s\n", error.what());
    return kFailed;
  }
}

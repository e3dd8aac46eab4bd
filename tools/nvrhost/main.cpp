// nvrhost: a simulated host. It loads the real plug-in, behaves to it as a recording server's core
// process does, and shows what came of it.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <functional>
#include <vector>

#include "nvrhost/ArchiveCommand.h"
#include "nvrhost/DemoCommand.h"
#include "nvrhost/Ffmpeg.h"
#include "nvrhost/PlayCommand.h"
#include "nvrhost/RecordCommand.h"
#include "nvrhost/Report.h"
#include "nvrhost/SearchCommand.h"
#include "nvrhost/StorageCommand.h"
#include "nvrhost/ThumbsCommand.h"

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

struct DemoOptions {
  std::string directory = "demo";
  double seconds = 15;
};

// What the user can ask of each verb.
struct Options {
  nvrhost::RecordOptions record;
  ShowOptions show;
  nvrhost::ListOptions list;
  nvrhost::PlayOptions play;
  nvrhost::ThumbsOptions thumbs;
  nvrhost::UploadOptions upload;
  nvrhost::StorageCommandOptions storage;
  DemoOptions demo;
};

// A subcommand and what it does; the result is the exit code.
struct Verb {
  CLI::App* command;
  std::function<int()> run;
};

std::vector<Verb> AddVerbs(CLI::App& app, Options& options) {
  const std::string program = "/proc/self/exe";
  std::vector<Verb> verbs;
  const auto add = [&](const char* name, const char* help, std::function<int()> run) -> CLI::App& {
    verbs.push_back({app.add_subcommand(name, help), std::move(run)});
    return *verbs.back().command;
  };

  auto& record = add("record", "give cameras' frames to the plug-in and count what became of them",
                     [&options, program] { return nvrhost::Record(options.record, program); });
  nvrhost::AddRecordOptions(record, options.record);
  record.footer(
      "Ends with 0 if all buffers came back and the files add up, 1 if not, 2 if it couldn't run.");

  auto& show = add("show", "what the recordings below a directory hold (changes nothing)",
                   [&options] { return Show(options.show); });
  show.add_option("path", options.show.path, "directory, or one .ps file")->required();
  show.add_flag("--csv", options.show.csv, "a line for each stream, for scripts");

  auto& search = add("search", "list the footage of a range",
                     [&options, program] { return nvrhost::List(options.list, program); });
  nvrhost::AddListOptions(search, options.list);
  search.footer("Ends with 0 if there is footage, 1 if not, 2 if it couldn't run.");

  auto& play = add("play", "play a range, export it or verify it",
                   [&options, program] { return nvrhost::Play(options.play, program); });
  nvrhost::AddPlayOptions(play, options.play);
  play.footer(
      "Ends with 0 if all is well, 1 if a frame is wrong or there is none, 2 if it couldn't run.");

  auto& thumbs = add("thumbs", "a contact sheet of key frames at chosen moments",
                     [&options, program] { return nvrhost::Thumbs(options.thumbs, program); });
  nvrhost::AddThumbsOptions(thumbs, options.thumbs);

  auto& storage = add("storage", "set how the drives are used and show how they are",
                      [&options, program] { return nvrhost::Storage(options.storage, program); });
  nvrhost::AddStorageCommandOptions(storage, options.storage);
  storage.footer("Ends with 0, 1 if a drive has an alarm, 2 if it couldn't run.");

  auto& archive = add("archive", "upload a day's recordings to a bucket",
                      [&options] { return nvrhost::Archive(options.upload); });
  nvrhost::AddUploadOptions(archive, options.upload);
  archive.footer("Ends with 0 if all is there, 1 if a file failed, 2 if it couldn't run.");

  auto& demo = add("demo", "all of it on a fresh directory, checked", [&options, program] {
    return nvrhost::Demo(options.demo.directory, options.demo.seconds, program);
  });
  demo.add_option("--dir", options.demo.directory, "directory to make")->capture_default_str();
  demo.add_option("--seconds", options.demo.seconds, "length of the recording")
      ->capture_default_str()
      ->check(CLI::Range(5.0, 3600.0));
  return verbs;
}

int Run(int argc, char** argv) {
  CLI::App app("A simulated host for the kelvo plug-in.\n");
  app.require_subcommand(1);
  constexpr std::size_t kHelpColumn = 34;
  app.get_formatter()->column_width(kHelpColumn);
  app.failure_message(CLI::FailureMessage::simple);
  app.set_version_flag("--version", "nvrhost " KELVO_VERSION);
  Options options;
  const auto verbs = AddVerbs(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kFailed;
  }
  const auto chosen = std::find_if(verbs.begin(), verbs.end(),
                                   [](const Verb& verb) { return verb.command->parsed(); });
  return chosen->run();
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

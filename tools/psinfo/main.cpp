// psinfo: looks into recordings, says where one is damaged, and makes a new index.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "media/IndexRepair.h"
#include "media/PSFile.h"
#include "psinfo/Print.h"
#include "psinfo/Recording.h"

namespace {

namespace fs = boost::filesystem;

constexpr int kDamaged = 1, kFailed = 2;
constexpr std::size_t kFaultsShown = 20;

// The media files that the user means: .ps files, .psi files for the .ps beside them, and all
// recordings below directories.
std::vector<std::string> MediaPaths(const std::vector<std::string>& given) {
  std::vector<std::string> paths;
  for (const auto& text : given) {
    const fs::path path(text);
    if (fs::is_directory(path)) {
      std::vector<std::string> found;
      for (const auto& entry : fs::recursive_directory_iterator(
               path, fs::directory_options::follow_directory_symlink)) {
        if (entry.path().extension() == ".ps") found.push_back(entry.path().string());
      }
      std::sort(found.begin(), found.end());
      paths.insert(paths.end(), found.begin(), found.end());
    } else if (path.extension() == ".psi") {
      paths.push_back(text.substr(0, text.size() - 1));
    } else {
      paths.push_back(text);
    }
  }
  if (paths.empty()) throw std::runtime_error("no recordings there");
  return paths;
}

int Check(const std::vector<std::string>& paths) {
  std::size_t damaged = 0;
  for (const auto& path : paths) {
    const auto result = psinfo::ReadRecording(path, psinfo::Expected::AnyWriters);
    std::printf("%s: %zu frames, %s\n", path.c_str(), result.frames.size(),
                result.faults.empty() ? "good" : "DAMAGED");
    if (result.faults.empty()) continue;
    ++damaged;
    for (std::size_t i = 0; i < std::min(result.faults.size(), kFaultsShown); ++i) {
      std::printf("  %s\n", result.faults[i].c_str());
    }
    if (result.faults.size() > kFaultsShown) {
      std::printf("  and %zu more\n", result.faults.size() - kFaultsShown);
    }
    if (result.unreadable > 0) {
      std::printf("  %llu bytes of the media file belong to no frame\n",
                  static_cast<unsigned long long>(result.unreadable));
    }
  }
  std::printf("%zu of %zu recordings damaged\n", damaged, paths.size());
  return damaged == 0 ? 0 : kDamaged;
}

// Prints how a new index came out; whether one is in place.
bool TellRebuilt(const std::string& path, const qv::kelvo::RepairResult& result) {
  using qv::kelvo::RepairOutcome;
  std::printf("%s: ", qv::kelvo::IndexPath(path).c_str());
  switch (result.outcome) {
    case RepairOutcome::Good:
    case RepairOutcome::Repaired:
      std::printf("%zu frames, %zu runs", result.frames, result.runs);
      break;
    case RepairOutcome::Busy:
      std::printf("left as it is: the recording is being written");
      break;
    case RepairOutcome::WouldLose:
      std::printf("left as it is: %zu frames could be read before, %zu would be left",
                  result.framesBefore, result.frames);
      break;
    case RepairOutcome::Failed:
      std::printf("left as it is: %s", result.error == qv::kelvo::kRanShort
                                           ? "the disk is full"
                                           : std::system_category().message(result.error).c_str());
      break;
  }
  if (result.unreadable > 0) {
    std::printf("; %llu bytes of the media file belong to no frame",
                static_cast<unsigned long long>(result.unreadable));
  }
  std::printf("\n");
  return result.outcome == RepairOutcome::Good || result.outcome == RepairOutcome::Repaired;
}

int Rebuild(const std::vector<std::string>& paths, const std::string& like, bool force) {
  bool allWell = true;
  for (const auto& path : paths) {
    const auto sibling = [&] { return like; };
    const auto result = qv::kelvo::RepairRecording(qv::kelvo::SystemPlatform(), path,
                                                   {.force = force,
                                                    .finish = true,
                                                    .sibling = sibling,
                                                    .fileInput = 0xFF,
                                                    .exclusively = nullptr});
    allWell &= TellRebuilt(path, result);
  }
  return allWell ? 0 : kFailed;
}

int Run(int argc, char** argv) {
  CLI::App app("Looks into recordings: a .ps media file with its .psi index.\n");
  app.require_subcommand(1);
  app.failure_message(CLI::FailureMessage::simple);
  app.set_version_flag("--version", "psinfo " KELVO_VERSION);
  std::vector<std::string> given;
  bool frames = false;
  const auto add = [&](const char* name, const char* help) {
    auto* const command = app.add_subcommand(name, help);
    command->add_option("path", given, ".ps or .psi files, or directories")
        ->required()
        ->check(CLI::ExistingPath);
    return command;
  };
  auto* const print = add("print", "head, streams, runs and frames");
  print->add_flag("-v,--frames", frames, "every frame, too");
  auto* const check = add("check", "hold pairs against the rules of the format");
  check->footer("Ends with 0 if all are good, 1 if one is damaged, 2 if it couldn't be read.");
  std::string like;
  bool force = false;
  auto* const rebuild = add(
      "rebuild", "make a damaged index anew from the media file (not while it is being written)");
  rebuild->add_option("--like", like, "recording of the same camera, to lend a lost head");
  rebuild->add_flag("--force", force, "also where that loses frames, or where nothing is damaged");
  rebuild->footer("Ends with 2, and the old index in place, if it can't be done.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kFailed;
  }
  const auto paths = MediaPaths(given);
  if (check->parsed()) return Check(paths);
  if (!print->parsed()) return Rebuild(paths, like, force);
  for (const auto& path : paths) psinfo::PrintRecording(path, frames);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "psinfo: %s\n", error.what());
    return kFailed;
  }
}

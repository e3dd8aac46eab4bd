#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Clock.h"

// Files and directories by name. Paths are UTF-8, of any length that the system takes; an error is
// the system's number, 0 for none, and nothing is waited for, unless the function says otherwise.
// Any thread.
namespace qv::kelvo {

enum class FileKind {
  Missing,
  File,  // also one whose content the system keeps elsewhere: deduplicated, in a cloud
  Directory,
  Other  // a pipe, a device
};

// What stands at `path`, or what a link there leads to.
[[nodiscard]] int FindKind(const std::string& path, FileKind& kind);

// Both are false when the system won't tell.
[[nodiscard]] bool Exists(const std::string& path);
[[nodiscard]] bool IsDirectory(const std::string& path);

// Bytes of a file by its own account; its directory's may be older while somebody writes it.
[[nodiscard]] int FileSize(const std::string& path, std::uint64_t& bytes);

// Removes a file, also one that is marked read-only, a link or an empty directory. An error if it
// isn't there: see IsMissing.
[[nodiscard]] int RemoveFile(const std::string& path);

// Makes one directory, for all to read and enter and for this user to write. No error if it is
// there.
[[nodiscard]] int MakeDirectory(const std::string& path);

// Removes the directory `path` if it is empty. Never a link to a directory, nor a place where
// another volume is mounted, for which the error is that of "not empty".
[[nodiscard]] int RemoveEmptyDirectory(const std::string& path);

// Whether one of two directories is or holds the other, by links or letter case, too.
[[nodiscard]] bool Overlap(const std::string& a, const std::string& b);

// The process's current directory, without a separator at its end unless it is a root.
[[nodiscard]] int CurrentDirectory(std::string& path);

// The longest path of an index, in characters: those that Windows counts, on every system.
inline constexpr std::size_t kMaxPath = 260;
[[nodiscard]] std::size_t PathLength(std::string_view path);

// What the system's number means, on every system: no such file or directory; a directory that
// isn't empty; its text.
[[nodiscard]] bool IsMissing(int error);
[[nodiscard]] bool IsNotEmpty(int error);
[[nodiscard]] std::string ErrorText(int error);

// Whether `error` says that another program has the file for the moment, or that a removed one
// still holds its name.
[[nodiscard]] bool IsBusy(int error);

// Takes a step, which returns an error, again and again while its file is busy, for a second and a
// half. Never on the road of a frame.
template <typename Step>
[[nodiscard]] int WhileBusy(Clock& clock, Step step, bool (*alsoBusy)(int error) = &IsBusy) {
  constexpr int kPatienceMs = 1500;
  constexpr int kPauseMs = 50;
  int error = step();
  for (int waited = 0; (IsBusy(error) || alsoBusy(error)) && waited < kPatienceMs;
       waited += kPauseMs) {
    clock.Pause(kPauseMs);
    error = step();
  }
  return error;
}

}  // namespace qv::kelvo

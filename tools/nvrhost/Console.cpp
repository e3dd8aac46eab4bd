#include "nvrhost/Console.h"

#include <unistd.h>

#include <cstdio>

namespace nvrhost {
namespace {
constexpr double kSecondsBetweenLines = 5;
}

Console::Console() : terminal(isatty(STDOUT_FILENO) == 1) {}

void Console::Clear() {
  if (!drawn) return;
  std::fputs("\r\033[K", stdout);
  std::fflush(stdout);
  drawn = false;
}

void Console::Line(const std::string& text) {
  const std::lock_guard guard(lock);
  Clear();
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

void Console::ErrorLine(const std::string& text) {
  const std::lock_guard guard(lock);
  Clear();
  std::fprintf(stderr, "%s\n", text.c_str());
}

void Console::Progress(const std::string& text, double seconds) {
  const std::lock_guard guard(lock);
  if (terminal) {
    std::printf("\r\033[K%s", text.c_str());
    drawn = true;
  } else {
    if (seconds < nextDue) return;
    nextDue = seconds + kSecondsBetweenLines;
    std::printf("%s\n", text.c_str());
  }
  std::fflush(stdout);
}

void Console::EndProgress() {
  const std::lock_guard guard(lock);
  if (drawn) std::fputc('\n', stdout);
  std::fflush(stdout);
  drawn = false;
  nextDue = 0;
}

}  // namespace nvrhost

#pragma once

#include <mutex>
#include <string>

namespace nvrhost {

// Standard output with a progress line that redraws itself on a terminal. Elsewhere a progress line
// is printed at most every few seconds. Thread-safe.
class Console {
 public:
  Console();
  // A whole line to standard output, or to standard error.
  void Line(const std::string& text);
  void ErrorLine(const std::string& text);
  // `seconds` since the start decides whether it is due where there is no terminal.
  void Progress(const std::string& text, double seconds);
  // Ends the progress line; the next one is printed at once.
  void EndProgress();

 private:
  void Clear();

  std::mutex lock;
  bool terminal;
  bool drawn = false;
  double nextDue = 0;
};

}  // namespace nvrhost

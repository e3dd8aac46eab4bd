#pragma once

#include "platform/Platform.h"
#include "tests/support/FaultyFiles.h"

namespace qv::kelvo {

struct Died {};

// Durable files over the real ones. Each step, in order of the calls, may fail, or the process may
// "die" before it or, when it writes, within it.
class ShakyFiles : public DurableFiles {
 public:
  WriteResult WriteNew(const std::string& path, std::string_view content) override {
    if (writeFailure) return *writeFailure;
    if (cutAt < content.size()) {
      (void)real.WriteNew(path, content.substr(0, cutAt));
      throw Died();
    }
    const int failure = Step();
    return failure != 0 ? WriteResult{WriteStep::Create, failure, 0} : real.WriteNew(path, content);
  }
  int Rename(const std::string& from, const std::string& to) override {
    const int failure = Step(from, to);
    return failure != 0 ? failure : real.Rename(from, to);
  }
  int Replace(const std::string& from, const std::string& to) override {
    const int failure = Step(from, to);
    return failure != 0 ? failure : real.Replace(from, to);
  }
  int Remove(const std::string& path) override {
    const int failure = Step(path, path);
    return failure != 0 ? failure : real.Remove(path);
  }

  // Counts the calls on files of that name among these, too.
  void Join(FaultyFiles& media, const std::string& name) {
    media.before = [this, &media, name](FileCall call, const std::string& path) {
      if (path.find(name) == std::string::npos) return;
      if (const int failure = Step(); failure != 0) media.Set({call, 1, 1, failure, 0, path});
    };
  }
  // From here on, the first step being 1.
  void Arm(int step, bool death) {
    steps = 0;
    fatefulStep = step;
    dies = death;
  }

  int fatefulStep = 0;
  int failures = 1;   // so many steps in a row, from that one
  std::string held;   // a name that no step can be taken on
  bool dies = false;  // fails otherwise
  int error = 29;     // on no system one that passes
  int steps = 0;
  std::size_t cutAt = std::string::npos;  // the process dies when so much was written
  const WriteResult* writeFailure = nullptr;

 private:
  int Step(const std::string& from = "", const std::string& to = "") {
    if (!held.empty() && (from == held || to == held)) return error;
    ++steps;
    if (steps < fatefulStep || steps >= fatefulStep + failures || fatefulStep == 0) return 0;
    if (dies) throw Died();
    return error;
  }

  DurableFiles& real = SystemPlatform().durableFiles;
};

}  // namespace qv::kelvo

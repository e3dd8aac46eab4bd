#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/Platform.h"
#include "shell/CFilePlugin.h"

namespace qvsvr::kelvo {

// The plug-in between Load and Unload, and the host's calls that are inside it: it ends only after
// the last of them has left, whatever order the host's threads call in. A call costs two additions
// to one counter and takes no lock, unless an end waits for it; only Load and Unload exclude each
// other. Blocks (Write, IOCTL) aren't among the calls, since their queue outlives the plug-in: they
// come from capture threads, and many. One object per process (shell/exports). Any thread.
class PluginLife {
 public:
  // One call's hold on the plug-in; empty without a plug-in.
  class Call {
   public:
    explicit Call(PluginLife& owner);
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    explicit operator bool() const { return plugin != nullptr; }
    CFilePlugin* operator->() const { return plugin; }

   private:
    PluginLife& life;
    CFilePlugin* plugin = nullptr;
  };

  // Ends the plug-in that is there, if any: it is told to stop, so that searches end at their next
  // event, calls that come now find none, and those inside are waited for. Not to be called from
  // inside a call. `make` gives the next one, or null.
  template <class Make>
  void Replace(Make make) {
    const std::lock_guard guard(changing);
    End();
    current = std::unique_ptr<CFilePlugin>(make()).release();
  }

 private:
  void Leave();
  void End();

  std::mutex changing;  // one Load or Unload at a time
  std::atomic<CFilePlugin*> current{nullptr};
  std::atomic<std::uint32_t> inside{0};
  std::mutex leaving;  // for the last call only, when the plug-in ends
  std::condition_variable allLeft;
};

// The operating system that this module runs on. Each module that has the exports defines it once.
[[nodiscard]] qv::kelvo::Platform& PluginPlatform();

}  // namespace qvsvr::kelvo

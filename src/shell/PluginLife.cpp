#include "shell/PluginLife.h"

namespace qvsvr::kelvo {

PluginLife::Call::Call(PluginLife& owner) : life(owner) {
  // Those that come too late don't count: End has to wait for the others only.
  if (life.current.load() == nullptr) return;
  // Counted before the plug-in is taken: End takes it away before it looks at the count.
  life.inside.fetch_add(1);
  plugin = life.current.load();
  if (plugin == nullptr) life.Leave();
}

PluginLife::Call::~Call() {
  if (plugin != nullptr) life.Leave();
}

void PluginLife::Leave() {
  if (inside.fetch_sub(1) != 1 || current.load() != nullptr) return;
  const std::lock_guard guard(leaving);
  allLeft.notify_all();
}

// From here on calls find no plug-in; those that found it before are counted. The counter itself
// could be waited for, but where the system has no call for that the library loses wake-ups.
void PluginLife::End() {
  const std::unique_ptr<CFilePlugin> last(current.exchange(nullptr));
  if (last == nullptr) return;
  last->Close();
  std::unique_lock guard(leaving);
  allLeft.wait(guard, [this] { return inside.load() == 0; });
}

}  // namespace qvsvr::kelvo

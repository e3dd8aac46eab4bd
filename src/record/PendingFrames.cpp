#include "record/PendingFrames.h"

namespace qvsvr::kelvo {
namespace {

constexpr std::size_t kSlabFrames = 64;
// Unused frames that are kept at any load.
constexpr std::size_t kSpareFrames = 4 * kSlabFrames;

}  // namespace

struct PendingFrames::Slab {
  // First, so that a frame's place within the slab leads to the slab.
  std::array<PendingFrame, kSlabFrames> Frames;
  PendingFrame* Free = nullptr;  // linked by Newer, the one freed last on top
  std::size_t Used = 0;
  std::list<Slab>::iterator Self;
};

PendingFrames::PendingFrames() = default;
PendingFrames::~PendingFrames() = default;

PendingFrames::Slab& PendingFrames::SlabOf(PendingFrame* frame) {
  return *reinterpret_cast<Slab*>(frame - frame->Home);
}

std::size_t PendingFrames::Capacity() const {
  return (Open.size() + Full.size()) * kSlabFrames;
}

void PendingFrames::AddSlab() {
  Slab& slab = Open.emplace_front();
  slab.Self = Open.begin();
  for (std::size_t i = kSlabFrames; i-- > 0;) {
    PendingFrame& frame = slab.Frames[i];
    frame.Home = static_cast<std::uint16_t>(i);
    frame.Newer = slab.Free;
    slab.Free = &frame;
  }
}

// From the slab that was used last, whose memory is likely in the caches.
PendingFrame* PendingFrames::Allocate() {
  if (Open.empty()) AddSlab();
  Slab& slab = Open.front();
  PendingFrame* frame = slab.Free;
  slab.Free = frame->Newer;
  ++slab.Used;
  ++InUse;
  if (slab.Free == nullptr) Full.splice(Full.end(), Open, slab.Self);

  frame->Time = 0;
  frame->Older = frame->Newer = frame->SlotOlder = frame->SlotNewer = frame->NextKey = nullptr;
  frame->Buffer = nullptr;
  frame->Size = frame->Provider = 0;
  frame->Slot = frame->Type = frame->Flags = frame->ExtensionLength = 0;
  frame->IsPes = frame->Ptz = false;
  return frame;
}

void PendingFrames::Discard(PendingFrame* frame) {
  Slab& slab = SlabOf(frame);
  --InUse;
  --slab.Used;
  std::list<Slab>& from = slab.Free == nullptr ? Full : Open;
  frame->Newer = slab.Free;
  slab.Free = frame;
  Open.splice(slab.Used != 0 ? Open.begin() : Open.end(), from, slab.Self);
  // The slack keeps a load that swings within a factor of three from allocating at all.
  while (Open.back().Used == 0 && Capacity() - InUse > 2 * InUse + kSpareFrames) Open.pop_back();
}

PendingFrame* PendingFrames::Copy(const PendingFrame& other) {
  PendingFrame* frame = Allocate();
  const std::uint16_t home = frame->Home;
  *frame = other;
  frame->Home = home;
  return frame;
}

void PendingFrames::InsertAhead(PendingFrame* next, PendingFrame* frame) {
  SlotEnds& ends = Ends[frame->Slot];
  PendingFrame*& place = next != nullptr ? next->Older : Newest;
  frame->Older = place;
  frame->Newer = next;
  frame->SlotOlder = ends.Newest;
  frame->SlotNewer = frame->NextKey = nullptr;
  (frame->Older != nullptr ? frame->Older->Newer : Oldest) = frame;
  (ends.Newest != nullptr ? ends.Newest->SlotNewer : ends.Oldest) = frame;
  place = ends.Newest = frame;
  if (frame->IsKey()) {
    if (ends.NewestKey != nullptr) ends.NewestKey->NextKey = frame;
    ends.NewestKey = frame;
  }
  ++Count;
}

// The link from the key frame before it now leads to the one behind it.
void PendingFrames::UnlinkKey(PendingFrame* frame, SlotEnds& ends) {
  // Keys leave oldest first, so that this finds nothing at once.
  PendingFrame* key = frame->SlotOlder;
  while (key != nullptr && !key->IsKey()) key = key->SlotOlder;
  if (key != nullptr) key->NextKey = frame->NextKey;
  if (ends.NewestKey == frame) ends.NewestKey = key;
}

void PendingFrames::Erase(PendingFrame* frame) {
  Take(frame);
  Discard(frame);
}

void PendingFrames::Take(PendingFrame* frame) {
  SlotEnds& ends = Ends[frame->Slot];
  if (frame->IsKey()) UnlinkKey(frame, ends);
  (frame->Older != nullptr ? frame->Older->Newer : Oldest) = frame->Newer;
  (frame->Newer != nullptr ? frame->Newer->Older : Newest) = frame->Older;
  (frame->SlotOlder != nullptr ? frame->SlotOlder->SlotNewer : ends.Oldest) = frame->SlotNewer;
  (frame->SlotNewer != nullptr ? frame->SlotNewer->SlotOlder : ends.Newest) = frame->SlotOlder;
  --Count;
}

}  // namespace qvsvr::kelvo

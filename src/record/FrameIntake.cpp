#include "record/FrameIntake.h"

#include "host/Log.h"
#include "media/StreamId.h"
#include "record/BufferReference.h"

namespace qvsvr::kelvo {
namespace {

// PTZ messages name inputs without a context.
bool IsCameraMoving(const RecordStream& stream, std::uint32_t provider, const PtzInputs& ptz) {
  const int slot = stream.SlotOf(provider);
  if (slot < 0 || slot >= kVideoSlots) return false;
  const int input = stream.EffectiveInput(slot);
  if (input < 0) return false;
  return ptz.IsMoving(qv::kelvo::MakeStreamID(0, qv::kelvo::ProviderOf(provider),
                                              qv::kelvo::DeviceOf(provider),
                                              static_cast<std::uint32_t>(input)));
}

}  // namespace

void IntakeFrame(RecordServices& services, StreamSet& streams, const PtzInputs& ptz,
                 const RecordMessage& frame) {
  BufferReference reference(services.Core, frame.Payload);
  ++services.Stats.eav;
  RecordStream* stream = streams.Route(frame.Source);
  if (stream == nullptr) {
    LogPrintf(LogCritical, "write invalid provider ID %08lX!!!",
              static_cast<unsigned long>(frame.Source));
    return;
  }
  const bool moving = IsCameraMoving(*stream, frame.Source, ptz);
  if (stream->StreamAddFrame(frame.Source, frame.Payload, frame.Length, frame.SubCode, frame.Header,
                             moving)) {
    reference.PassOn();
  }
}

}  // namespace qvsvr::kelvo

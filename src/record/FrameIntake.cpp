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

void IntakeFrame(RecordServices& services, StreamSet& streams, const PtzInputs& ptz, void* buffer,
                 std::uint32_t length, std::uint32_t provider, std::uint32_t subCode,
                 const KelvoFrameHeader& header) {
  BufferReference reference(services.Core, buffer);
  ++services.Stats.eav;
  RecordStream* stream = streams.Route(provider);
  if (stream == nullptr) {
    LogPrintf(LogCritical, "write invalid provider ID %08lX!!!",
              static_cast<unsigned long>(provider));
    return;
  }
  const bool moving = IsCameraMoving(*stream, provider, ptz);
  if (stream->StreamAddFrame(provider, buffer, length, subCode, header, moving)) {
    reference.PassOn();
  }
}

}  // namespace qvsvr::kelvo

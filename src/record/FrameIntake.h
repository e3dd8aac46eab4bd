#pragma once

#include <cstdint>

#include "record/DeviceConfig.h"
#include "record/RecordServices.h"
#include "record/StreamSet.h"

namespace qvsvr::kelvo {

// Gives one media frame to the stream of its provider. Takes over the buffer's reference: it is
// with the stream or released when this returns or throws. `header` is borrowed for the call.
// Worker thread only.
void IntakeFrame(RecordServices& services, StreamSet& streams, const PtzInputs& ptz, void* buffer,
                 std::uint32_t length, std::uint32_t provider, std::uint32_t subCode,
                 const KelvoFrameHeader& header);

}  // namespace qvsvr::kelvo

#pragma once

#include "record/DeviceConfig.h"
#include "record/MessageQueue.h"
#include "record/RecordServices.h"
#include "record/StreamSet.h"

namespace qvsvr::kelvo {

// Gives one media frame to the stream of its provider, the message's source. Takes over the
// payload's reference: it is with the stream or released when this returns or throws. Worker thread
// only.
void IntakeFrame(RecordServices& services, StreamSet& streams, const PtzInputs& ptz,
                 const RecordMessage& frame);

}  // namespace qvsvr::kelvo

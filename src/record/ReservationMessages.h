#pragma once

#include "host/Xml.h"
#include "record/RecordServices.h"

namespace qvsvr::kelvo {

// Applies the Reservation children of each Storage element of an action message that carries this
// module's id: other modules of the host ask for space on a volume and give it up again. The answer
// to a request goes out as an event. Worker thread only.
void ApplyReservations(const RecordServices& services, const TiXmlElement& root);

}  // namespace qvsvr::kelvo

#pragma once

#include "platform/Platform.h"

// The one export that kelvo_seams has besides the plug-in's eight: call it before Load with the
// platform that the plug-in shall run on. The platform outlives the plug-in. Null goes back to the
// system's.
extern "C" void KelvoTestPlatform(qv::kelvo::Platform* platform);
using KelvoTestPlatformFunction = void (*)(qv::kelvo::Platform*);

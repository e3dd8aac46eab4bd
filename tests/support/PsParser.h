#pragma once

#include "psinfo/Recording.h"

namespace testsupport {

// The second reader of recordings, which shares no code with the plug-in's.
using psinfo::Bytes;
using PsFrame = psinfo::Frame;
using PsRun = psinfo::Run;
using PsStream = psinfo::Stream;
using PsRecording = psinfo::Recording;
using PsEnd = psinfo::Expected;

[[nodiscard]] inline PsRecording ReadPs(const std::string& path, PsEnd end = PsEnd::Closed) {
  return psinfo::ReadRecording(path, end);
}

}  // namespace testsupport

#include "tree/CFileInfo.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "host/Log.h"

namespace qv::kelvo {
namespace {

constexpr unsigned kInputsPerEncoder = 16;

std::uint8_t Low8(unsigned value) {
  return static_cast<std::uint8_t>(value & 0xFFu);
}

// What the index tells.
void FillRow(const PsiStreamRecord& record, std::uint8_t fileInput, StreamRow& row) {
  row.frames = record.frameCount;
  row.flags = record.flags;
  row.input = IsWideInput(fileInput) ? record.encoder : fileInput;
  const bool ofEncoder = IsWideInput(fileInput) && fileInput != kWholeDevice;
  row.channel = Low8(record.channel + (ofEncoder ? record.encoder * kInputsPerEncoder : 0u));
  row.firstTime = SecondsOf({record.firstDate, record.firstMs});
  row.lastTime = SecondsOf({record.lastDate, record.lastMs});
}

void FillRow(PSReader& reader, std::uint8_t fileInput, unsigned stream, StreamRow& row) {
  FillRow(reader.GetStream(stream), fileInput, row);
  PsStreamDescriptor descriptor;
  (void)reader.GetStreamInfo(stream, descriptor);  // a map that is cut has no more to tell
  const bool video = stream < kVideoStreams;
  row.codec = Low8(descriptor.streamType - (video ? kVideoTypes : kAudioTypes) + 256u);
  row.width16 = descriptor.width16;
  row.height16 = descriptor.height16;
  row.bufSizeSamples = descriptor.bufSizeSamples;
  row.sampleRate = descriptor.sampleRate;
}

}  // namespace

bool CFileInfo::ParsePath(std::string recordingPath) {
  path = std::move(recordingPath);
  PathFields fields{year, month, day, hour, minute, second, id};
  const bool parsed = qv::kelvo::ParsePath(path, fields);
  year = fields.year;
  month = fields.month;
  day = fields.day;
  hour = fields.hour;
  minute = fields.minute;
  second = fields.second;
  id = fields.id;
  return parsed;
}

bool CFileInfo::RanBack() const {
  const auto endsAhead = [](const StreamRow& row) {
    return row.frames != 0 && row.lastTime < row.firstTime;
  };
  return endTime < startTime || std::ranges::any_of(streamRows, endsAhead);
}

std::int64_t SecondsOf(PackedTime time) {
  using namespace std::chrono;
  time = Carry(time);
  const year_month_day date{year{YearOf(time.date)},
                            month{static_cast<unsigned>(MonthOf(time.date))},
                            day{static_cast<unsigned>(DayOf(time.date))}};
  if (!date.ok() || time.ms >= kMsPerDay) return -1;
  return Unpack(time) / 1000;
}

void FillStreamRows(const RunTable& table, CFileInfo& info) {
  info.fileInput = table.fileInput;
  info.startTime = SecondsOf({table.header.firstDate, table.header.firstMs});
  info.endTime = SecondsOf({table.header.lastDate, table.header.lastMs});
  info.streamRows = {};
  for (const RunTable::Stream& stream : table.streams) {
    FillRow(stream.record, table.fileInput, info.streamRows[stream.number]);
  }
}

bool FillStreamRows(PSReader& reader, CFileInfo& info) {
  using qvsvr::kelvo::LogPrintf;
  using qvsvr::kelvo::LogWarning;
  if (const int error = reader.Open(info.path); error != kPsOk) {
    LogPrintf(LogWarning, "ps file open %s error %d", info.path.c_str(), error);
    return false;
  }
  PsFileInfo fileInfo;
  if (const int error = reader.GetFileInfo(fileInfo); error != kPsOk) {
    LogPrintf(LogWarning, "ps file info %s error %d", info.path.c_str(), error);
    return false;
  }
  info.fileInput = fileInfo.fileInput[0];
  PackedTime first, last;
  if (reader.GetFirstLast(kWholeFile, first, last) == kPsOk) {
    info.startTime = SecondsOf(first);
    info.endTime = SecondsOf(last);
  }
  for (unsigned stream = 0; stream < kStreamCount; ++stream) {
    info.streamRows[stream] = {};
    if (reader.GetFrameCount(static_cast<std::uint16_t>(stream)) == 0) continue;
    FillRow(reader, info.fileInput, stream, info.streamRows[stream]);
  }
  return true;
}

}  // namespace qv::kelvo

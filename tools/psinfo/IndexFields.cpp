#include "psinfo/IndexFields.h"

#include <array>
#include <span>

#include "psinfo/Layout.h"

namespace psinfo {
namespace {

struct Field {
  std::size_t offset;
  const char* name;
};
constexpr std::array<Field, 13> kHeadFields{{{0, "version"},
                                             {4, "head size"},
                                             {8, "stream record size"},
                                             {12, "frame record size"},
                                             {16, "stream count"},
                                             {20, "frame count"},
                                             {24, "first date"},
                                             {26, "last date"},
                                             {28, "first millisecond"},
                                             {32, "last millisecond"},
                                             {36, "run record size"},
                                             {40, "run count"},
                                             {44, "reserved bytes"}}};
constexpr std::array<Field, 11> kStreamFields{{{0, "frame count"},
                                               {4, "first frame"},
                                               {8, "last frame"},
                                               {12, "first date"},
                                               {14, "last date"},
                                               {16, "first millisecond"},
                                               {20, "last millisecond"},
                                               {24, "channel"},
                                               {25, "flags"},
                                               {26, "encoder"},
                                               {27, "reserved bytes"}}};
constexpr std::array<Field, 13> kFrameFields{{{0, "stream"},
                                              {1, "reserved byte"},
                                              {2, "frame info"},
                                              {3, "stream info"},
                                              {4, "size"},
                                              {6, "date"},
                                              {8, "millisecond"},
                                              {12, "offset"},
                                              {16, "previous link"},
                                              {20, "next link"},
                                              {24, "group count"},
                                              {26, "size, high bit"},
                                              {27, "reserved bytes"}}};
constexpr std::array<Field, 7> kRunFields{{{0, "stream"},
                                           {1, "flags"},
                                           {2, "reserved bytes"},
                                           {4, "first date"},
                                           {6, "last date"},
                                           {8, "first millisecond"},
                                           {12, "last millisecond"}}};

// The table of an index that holds a byte.
struct Place {
  std::string record;  // "frame record 12"
  std::size_t start;   // of that record
  std::span<const Field> fields;
};

Place PlaceOf(std::size_t offset, std::size_t frameCount) {
  const auto numbered = [offset](const char* name, std::size_t begin, std::size_t size,
                                 std::span<const Field> fields) {
    const std::size_t number = (offset - begin) / size;
    return Place{name + std::to_string(number), begin + number * size, fields};
  };
  const std::size_t runs = kIndexHead + frameCount * kRecord;
  if (offset < kHead) return {"head", 0, kHeadFields};
  if (offset < kIndexHead) return numbered("stream record ", kHead, kRecord, kStreamFields);
  if (offset < runs) return numbered("frame record ", kIndexHead, kRecord, kFrameFields);
  return numbered("run record ", runs, kRunRecord, kRunFields);
}

const Field& FieldOf(const Place& place, std::size_t offset) {
  const Field* found = &place.fields.front();
  for (const Field& field : place.fields) {
    if (place.start + field.offset <= offset) found = &field;
  }
  return *found;
}

}  // namespace

std::string FieldAt(std::size_t offset, std::size_t frameCount) {
  const Place place = PlaceOf(offset, frameCount);
  return place.record + ": " + FieldOf(place, offset).name;
}

std::size_t FieldStart(std::size_t offset, std::size_t frameCount) {
  const Place place = PlaceOf(offset, frameCount);
  return place.start + FieldOf(place, offset).offset;
}

}  // namespace psinfo

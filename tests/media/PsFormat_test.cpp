#include "media/PsFormat.h"

#include <algorithm>
#include <initializer_list>

#include "media/PsiFormat.h"
#include "tests/media/PSFileFixture.h"

namespace qv::kelvo {
namespace {

std::vector<std::byte> MakeMap(const PsFileInfo& info,
                               const std::array<PsStreamDescriptor, kStreamCount>& descriptors) {
  std::vector<std::byte> map(kProgramMapSize, std::byte{0xAA});
  EncodeProgramMap(info, descriptors, std::span(map).first<kProgramMapSize>());
  return map;
}

TEST(PsFormat, ProgramMapHasEachFieldInItsPlace) {
  PsFileInfo info = {{0x84}, {1, 2, 3}, std::string(32, 'f'), 0};
  std::array<PsStreamDescriptor, kStreamCount> descriptors;
  descriptors[1] = {0x82, 0xE1, 40, 30, 7, 0, 0, {}, "Gate", 3, 0, 0, 0};
  descriptors[17] = {0x91, 0xC1, 0,   0,   0, 0x12, 0x34, {1, 2}, std::string(32, 'n'),
                     0,    0,    512, 8000};
  const auto map = MakeMap(info, descriptors);
  const auto at = [&](std::size_t offset, std::size_t size) {
    return Hex(ConstBytes(map).subspan(offset, size));
  };
  EXPECT_EQ(at(0, 10), "00 00 01 BC 07 A4 E2 FF 00 5E");  // start, length, version, marker, info
  EXPECT_EQ(at(10, 8), "FF FF FF FF FF FF FF FF");
  EXPECT_EQ(at(18, 4), "84 00 00 00");                      // file input
  EXPECT_EQ(at(70, 2), "02 00");                            // level of the area, level
  EXPECT_EQ(at(104, 2), "07 40");                           // 32 entries of 58 bytes
  EXPECT_EQ(at(164, 10), "82 E1 00 36 28 1E FF FF 00 00");  // entry 1: type, id, length, size
  EXPECT_EQ(at(164 + 26, 6), "47 61 74 65 00 00");
  EXPECT_EQ(at(1092, 12), "91 C1 00 36 02 00 1F 40 12 34 01 02");  // entry 17: 512, 8000
  EXPECT_EQ(at(1092 + 26, 34), at(1092 + 26, 32) + " 00 00");      // name full, entry 18 unset
  PsFileInfo back;
  EXPECT_TRUE(DecodeFileInfo(map, back) && back == info);
  PsStreamDescriptor read;
  EXPECT_TRUE(DecodeStreamDescriptor(map, 17, read) && read == descriptors[17]);

  // What doesn't fit is cut; what is unset stays 0.
  info = {{0x84, 9, 9, 9}, {}, "", 0};
  descriptors[17].name += "nnnn";
  const auto second = MakeMap(info, descriptors);
  EXPECT_EQ(Hex(ConstBytes(second).subspan(18, 4)), "84 00 00 00");
  EXPECT_EQ(std::ranges::count(ConstBytes(second).subspan(22, 48), std::byte{0}), 48);
  EXPECT_TRUE(std::ranges::equal(ConstBytes(second).subspan(1092), ConstBytes(map).subspan(1092)));
}

TEST(PsFormat, AudioRateUnsetReadsAs8000AndItsFlagBitIsNoPartOfIt) {
  const struct {
    std::uint8_t high, low;
    unsigned rate, flag;
  } rows[] = {{0xFF, 0xFF, 8000, 0}, {0, 0, 8000, 0}, {0x1F, 0x40, 8000, 0}, {0x1F, 0x48, 8000, 1}};
  for (const auto& row : rows) {
    auto map = MakeMap({}, {});
    map[106 + 16 * 58 + 6] = std::byte{row.high};
    map[106 + 16 * 58 + 7] = std::byte{row.low};
    PsStreamDescriptor read;
    ASSERT_TRUE(DecodeStreamDescriptor(map, 16, read));
    EXPECT_EQ(read.sampleRate, row.rate);
    EXPECT_EQ(read.rateFlag, row.flag);
  }
}

TEST(PsFormat, MapsOfOtherLengthsDecodeWithinTheirBounds) {
  // An older map: 28 bytes of info, entries of 8 bytes.
  std::vector<std::byte> old(40 + 32 * 8, std::byte{0});
  const auto put = [&](std::size_t at, std::initializer_list<int> bytes) {
    for (const int b : bytes) old[at++] = static_cast<std::byte>(b);
  };
  put(0, {0, 0, 1, 0xBC, static_cast<int>((old.size() - 6) >> 8),
          static_cast<int>(old.size() - 6) & 255});
  put(8, {0, 28});
  for (std::size_t n = 0; n < 32; ++n) put(40 + n * 8, {0x82, static_cast<int>(n), 0, 4, 9, 8});
  PsFileInfo info;
  info.fileName = "kept";
  PsStreamDescriptor descriptor;
  descriptor.name = "kept";
  EXPECT_TRUE(DecodeFileInfo(old, info));
  EXPECT_EQ(info.fileName, "kept");
  ASSERT_TRUE(DecodeStreamDescriptor(old, 15, descriptor));
  EXPECT_EQ(descriptor.streamId, 15);
  EXPECT_EQ(descriptor.height16, 8);
  EXPECT_EQ(descriptor.name, "kept");
  EXPECT_FALSE(DecodeStreamDescriptor(old, 32, descriptor));

  const struct {
    std::size_t at;
    int value;
    bool info, stream;
  } lies[] = {{9, 27, false, false},  {8, 0xFF, false, false}, {4, 0xFF, false, false},
              {5, 0x21, true, false}, {3, 0xBA, false, false}, {42, 0xFF, true, false},
              {43, 3, true, false},   {43, 5, true, false}};
  for (const auto& lie : lies) {
    auto map = old;
    map[lie.at] = static_cast<std::byte>(lie.value);
    EXPECT_EQ(DecodeFileInfo(map, info), lie.info) << lie.at << ' ' << lie.value;
    EXPECT_EQ(DecodeStreamDescriptor(map, 31, descriptor), lie.stream)
        << lie.at << ' ' << lie.value;
  }
  for (std::size_t size = 0; size < old.size(); ++size) {
    EXPECT_FALSE(DecodeStreamDescriptor(ConstBytes(old).first(size), 0, descriptor));
  }
}

TEST(PsFormat, ProtectedSizesAndTimeStampsSurviveAtEveryBit) {
  std::array<std::byte, 3> size;
  EncodeProtectedSize(kNoPreviousFrame, size);
  EXPECT_EQ(Hex(size), "FF FF FF");
  for (unsigned bit = 0; bit < 22; ++bit) {
    EncodeProtectedSize(1u << bit, size);
    EXPECT_EQ(DecodeProtectedSize(size), 1u << bit);
    EXPECT_NE(Hex(size).substr(0, 5), "00 00");
  }
  std::array<std::byte, 5> ticks;
  for (unsigned bit = 0; bit < 33; ++bit) {
    EncodeTicks(std::uint64_t{1} << bit, ticks);
    EXPECT_EQ(DecodeTicks(ticks), std::uint64_t{1} << bit);
  }
  EncodeTicks(kMaxTicks, ticks);
  EXPECT_EQ(Hex(ticks), "3F FF FF FF FF");
}

TEST(PsFormat, AnyStreamIdMapsToAStreamNumber) {
  for (unsigned id = 0; id < 256; ++id) {
    const unsigned number = (id & 0x30) == 0 ? 16 + id % 16 : id % 16;  // Cx is audio, Dx Ex video
    EXPECT_EQ(StreamOfId(static_cast<std::uint8_t>(id)), number);
  }
}

TEST(PsFormat, UserDataKeepsWholeTriplesButTwoBitsOfEach) {
  const struct {
    std::string data, encoded, decoded;
  } rows[] = {
      {"", "", ""},
      {"\x01", "00", ""},
      {"\x01\x02", "00 00", ""},
      {std::string("\xFF\x02\xFF", 3), "FF 03 7F 01", "FF 02 FC"},
      {std::string("\x00\x03\x04", 3), "00 03 82 01", "00 03 04"},
      {std::string("\x00\x00\x01\x07", 4), "00 01 00 01 00", "00 00 00"},
  };
  for (const auto& row : rows) {
    std::vector<std::byte> encoded(EncodedUserDataSize(row.data.size()), std::byte{0xEE});
    EncodeUserData(AsBytes(row.data), encoded);
    EXPECT_EQ(Hex(encoded), row.encoded);
    std::array<std::byte, 87> decoded;
    const std::size_t size = DecodeUserData(encoded, decoded);
    EXPECT_EQ(Hex(ConstBytes(decoded).first(size)), row.decoded);
  }
  std::array<std::byte, 5> room;  // for one triple only
  EXPECT_EQ(DecodeUserData(std::vector<std::byte>(116), room), 3u);
}

// The places of the fields are pinned by the documented example (PSFile_test.cpp).
TEST(PsiFormat, LargestFrameAtTheFarthestPlaceSurvives) {
  PsiFrameRecord frame{17, 0x9E, 0xC1, 0, 0x32CF, 0x01020304, 0xFFFFFFFF, 9, 10, 11, 0};
  frame.SetSize(4'194'272);
  std::array<std::byte, 32> bytes;
  Encode(frame, bytes);
  EXPECT_TRUE(DecodeFrame(bytes) == frame);
  EXPECT_EQ(frame.Size(), 4'194'272u);
  EXPECT_EQ(frame.Offset(), 0xFFFFFFFFull * 32);
}

TEST(PsiFormat, RunOfNoStreamOrWithReservedBytesIsRefused) {
  std::array<std::byte, 16> bytes;
  Encode(PsiRunRecord{17, 0x40, 0x32CF, 0x32D0, 1, 2}, bytes);
  PsiRunRecord back;
  EXPECT_TRUE(DecodeRun(bytes, back));
  for (const std::size_t field : {0, 2, 3}) {
    auto other = bytes;
    other[field] = std::byte{32};
    EXPECT_FALSE(DecodeRun(other, back)) << field;
  }
}

TEST(PsiFormat, UnwrittenRecordsAreInvalid) {
  EXPECT_FALSE(IsValid(PsiFrameRecord{}));
  PsiFrameRecord second;  // links back to record 0
  second.next = kNoFrame;
  EXPECT_TRUE(IsValid(second));
  second.stream = 32;
  EXPECT_FALSE(IsValid(second));
}

TEST(PsiRuns, EndsWhereFlagsDateOrTimeBreak) {
  struct Given {
    std::uint8_t flags;
    PackedDate date;
    std::uint32_t ms;
  };
  const struct {
    Given first, next;
    bool same;
  } rows[] = {
      {{0, 100, 5000}, {0, 100, 6000}, true},     {{0, 100, 5000}, {0, 100, 6001}, false},
      {{0, 100, 5000}, {0, 100, 5000}, true},     {{0, 100, 5000}, {0, 100, 4999}, false},
      {{0, 100, 5000}, {0x80, 100, 5001}, false}, {{0xC0, 100, 5000}, {0xC0, 100, 5001}, true},
      {{0, 100, 86'399'999}, {0, 101, 0}, false}, {{0, 100, 5000}, {0, 101, 5001}, false},
      {{0, 100, 0}, {0, 100, 1000}, true},  // midnight is a time like any other
  };
  for (const auto& row : rows) {
    PsiRuns runs;
    for (const Given& given : {row.first, row.next}) {
      PsiFrameRecord record;
      record.stream = 3;
      record.frameInfo = FrameInfo(given.flags, kFrameI);
      record.date = given.date;
      record.ms = given.ms;
      runs.Add(record);
    }
    EXPECT_EQ(runs.OpenCount(), 1u);
    runs.CloseAll();
    EXPECT_EQ(runs.OpenCount(), 0u);
    ASSERT_EQ(runs.Closed().size(), row.same ? 1u : 2u) << row.first.ms << ' ' << row.next.ms;
    EXPECT_EQ(runs.Closed().front().firstMs, row.first.ms);
    EXPECT_EQ(runs.Closed().back().lastMs, row.next.ms);
    EXPECT_EQ(runs.Closed().back().flags, row.next.flags);
  }
}

}  // namespace
}  // namespace qv::kelvo

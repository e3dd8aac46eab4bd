#include "media/PsFormat.h"

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

// What the writer sets of it is checked by the reader in tools/psinfo.
TEST(PsFormat, ProgramMapKeepsAllFieldsAndCutsLongNames) {
  const PsFileInfo info = {{0x84}, {1, 2, 3}, std::string(32, 'f'), 0};
  std::array<PsStreamDescriptor, kStreamCount> descriptors;
  descriptors[1] = {0x82, 0xE1, 40, 30, 7, 0, 0, {}, "Gate", 3, 0, 0, 0};
  descriptors[17] = {0x91, 0xC1, 0,   0,   0, 0x12, 0x34, {1, 2}, std::string(32, 'n'),
                     0,    0,    512, 8000};
  const auto map = MakeMap(info, descriptors);
  EXPECT_EQ(Hex(ConstBytes(map).subspan(1092, 12)), "91 C1 00 36 02 00 1F 40 12 34 01 02");
  EXPECT_EQ(Hex(ConstBytes(map).subspan(1148, 4)), "6E 6E 00 00");  // name full, entry 18 unset
  PsFileInfo back;
  EXPECT_TRUE(DecodeFileInfo(map, back) && back == info);
  PsStreamDescriptor read;
  EXPECT_TRUE(DecodeStreamDescriptor(map, 17, read) && read == descriptors[17]);
  descriptors[17].name += "nnnn";
  EXPECT_TRUE(MakeMap(info, descriptors) == map);
}

TEST(PsFormat, AudioRateUnsetReadsAs8000AndItsFlagBitIsNoPartOfIt) {
  for (const auto& [bytes, flag] : {std::pair{0xFFFF, 0}, {0, 0}, {0x1F40, 0}, {0x1F48, 1}}) {
    auto map = MakeMap({}, {});
    map[106 + 16 * 58 + 6] = static_cast<std::byte>(bytes >> 8);
    map[106 + 16 * 58 + 7] = static_cast<std::byte>(bytes & 255);
    PsStreamDescriptor read;
    ASSERT_TRUE(DecodeStreamDescriptor(map, 16, read));
    EXPECT_EQ(read.sampleRate, 8000) << bytes;
    EXPECT_EQ(read.rateFlag, flag) << bytes;
  }
}

TEST(PsFormat, MapsOfOtherLengthsDecodeWithinTheirBounds) {
  // An older map: 28 bytes of info, entries of 8 bytes.
  std::vector<std::byte> old(40 + 32 * 8, std::byte{0});
  const auto put = [&](std::size_t at, std::initializer_list<int> bytes) {
    for (const int b : bytes) old[at++] = static_cast<std::byte>(b);
  };
  put(0, {0, 0, 1, 0xBC, 1, 34, 0, 0, 0, 28});
  for (std::size_t n = 0; n < 32; ++n) put(40 + n * 8, {0x82, static_cast<int>(n), 0, 4, 9, 8});
  PsFileInfo info;
  PsStreamDescriptor descriptor;
  info.fileName = descriptor.name = "kept";
  EXPECT_TRUE(DecodeFileInfo(old, info));
  ASSERT_TRUE(DecodeStreamDescriptor(old, 15, descriptor));
  EXPECT_EQ(descriptor.streamId, 15);
  EXPECT_EQ(descriptor.height16, 8);
  EXPECT_EQ(info.fileName + descriptor.name, "keptkept");
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

TEST(PsFormat, AnyStreamIdMapsToAStreamNumber) {
  for (unsigned id = 0; id < 256; ++id) {
    const unsigned number = (id & 0x30) == 0 ? 16 + id % 16 : id % 16;  // Cx is audio, Dx Ex video
    EXPECT_EQ(StreamOfId(static_cast<std::uint8_t>(id)), number);
  }
}

// The places of the fields are pinned by the documented example (PSFile_test.cpp).
TEST(PsiFormat, RecordsThatNobodyWroteAreRefused) {
  std::array<std::byte, 16> bytes;
  Encode(PsiRunRecord{17, 0x40, 0x32CF, 0x32D0, 1, 2}, bytes);
  PsiRunRecord back;
  EXPECT_TRUE(DecodeRun(bytes, back));
  for (const std::size_t field : {0, 2, 3}) {
    auto other = bytes;
    other[field] = std::byte{32};
    EXPECT_FALSE(DecodeRun(other, back)) << field;
  }
  EXPECT_FALSE(IsValid(PsiFrameRecord{}));
  PsiFrameRecord second;  // links back to record 0
  second.next = kNoFrame;
  EXPECT_TRUE(IsValid(second));
  second.stream = 32;
  EXPECT_FALSE(IsValid(second));
}

}  // namespace
}  // namespace qv::kelvo

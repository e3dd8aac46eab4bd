#include "record/StreamSet.h"

#include "record/RateMeter.h"
#include "record/Reservations.h"
#include "tests/record/StreamFixture.h"

namespace qvsvr::kelvo {
namespace {

class StreamSetTest : public StreamTest {
 protected:
  std::uint32_t Routed(std::uint32_t provider) {
    const RecordStream* found = streams.Route(provider);
    return found == nullptr ? 0 : found->StreamId;
  }
  StreamSet streams;
};

TEST_F(StreamSetTest, RoutesById_ThenEncoder_ThenDevice) {
  RecordStream& encoder = streams.Add(NewStream(0x20120281));
  streams.Add(NewStream(0x001202FF));
  RecordStream& channel = streams.Add(NewStream(0x20120225));
  channel.AltId = 0x20120230;
  streams.RoutesChanged();
  const std::pair<std::uint32_t, std::uint32_t> rows[] = {
      {0x20120225, 0x20120225}, {0x20120230, 0x20120225},  // by either id of a channel stream
      {0x20120224, 0x20120281}, {0x20120221, 0x20120281},  // encoder 1 of context 2
      {0x20120204, 0x001202FF}, {0x50120205, 0x001202FF},  // any context, any encoder
      {0x20120304, 0},          {0x20130204, 0},          {0, 0},
  };
  for (const auto& [provider, wanted] : rows) EXPECT_EQ(Routed(provider), wanted) << provider;

  channel.AltId = 0;
  streams.RoutesChanged();
  EXPECT_EQ(Routed(0x20120230), 0x20120281u);
  streams.Remove(&encoder);
  EXPECT_EQ(Routed(0x20120230), 0x001202FFu);
  EXPECT_EQ(streams.Find(0x20120281), nullptr);
  EXPECT_EQ(streams.Find(0x20120225), &channel);
  EXPECT_EQ(streams.All().size(), 2u);
}

TEST_F(StreamSetTest, ProviderZeroNeverMatchesAnId) {
  streams.Add(NewStream(0));
  EXPECT_EQ(streams.Route(0), nullptr);
  RecordStream& encoder = streams.Add(NewStream(0x80));
  EXPECT_EQ(streams.Route(0), &encoder);
}

TEST_F(StreamSetTest, FirstStreamInOrderHasAnIdThatTwoClaim) {
  RecordStream& first = streams.Add(NewStream(0x00120201));
  first.AltId = 0x00120202;
  RecordStream& second = streams.Add(NewStream(0x00120202));
  EXPECT_EQ(streams.Route(0x00120202), &first);
  EXPECT_EQ(streams.Find(0x00120202), &second);
}

TEST(Reservations, SumsPerVolumeAndRefusesNonsense) {
  ReservationList list;
  EXPECT_FALSE(list.AddReservation({"", "v/", 1}));
  EXPECT_FALSE(list.AddReservation({"a", "", 1}));
  EXPECT_FALSE(list.AddReservation({"a", "v/", 0}));
  EXPECT_TRUE(list.AddReservation({"a", "v/", 2'000'000'000}));
  EXPECT_FALSE(list.AddReservation({"a", "w/", 1}));
  EXPECT_TRUE(list.AddReservation({"b", "v/", 2'000'000'000}));
  EXPECT_EQ(list.ReservedGB("v/"), 4'000'000'000);
  EXPECT_EQ(list.ReservedGB("w/"), 0);
  list.RemoveReservation("A");
  list.RemoveReservation("");
  list.RemoveReservation("a");
  list.RemoveReservation("a");
  EXPECT_FALSE(list.HasReservation("a"));
  EXPECT_TRUE(list.HasReservation("b"));
  EXPECT_EQ(list.ReservedGB("v/"), 2'000'000'000);
}

TEST(RateMeter, SumsUntilCleared) {
  RateMeter meter;
  std::uint64_t bytes = 77, ms = 77;
  EXPECT_FALSE(meter.Read(bytes, ms, true));
  EXPECT_EQ(bytes, 77u);
  meter.Add(10, 5'000'000'000);
  meter.Add(20, 7'500'000'000);
  EXPECT_TRUE(meter.Read(bytes, ms, false));
  EXPECT_TRUE(meter.Read(bytes, ms, true));
  EXPECT_EQ(bytes, 30u);
  EXPECT_EQ(ms, 2500u);
  EXPECT_FALSE(meter.Read(bytes, ms, false));
  meter.Add(1, 9'000'000'000);
  EXPECT_TRUE(meter.Read(bytes, ms, false));
  EXPECT_EQ(ms, 0u) << "time before the clear doesn't count";
}

TEST(RateMeter, KeepsTheNewestBuckets) {
  RateMeter meter(2, 2);
  std::uint64_t bytes = 0, ms = 0;
  for (int second = 0; second < 6; ++second) meter.Add(1, second * 1'000'000'000LL);
  EXPECT_TRUE(meter.Read(bytes, ms, false));
  EXPECT_EQ(bytes, 4u);  // of seconds 2 to 5
  EXPECT_EQ(ms, 3000u);
}

}  // namespace
}  // namespace qvsvr::kelvo

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

TEST(RateMeter, SumsUntilClearedAndKeepsTheNewestBuckets) {
  using Sum = std::optional<std::pair<std::uint64_t, std::uint64_t>>;  // bytes and milliseconds
  const auto read = [](RateMeter& meter, bool clear) {
    std::pair<std::uint64_t, std::uint64_t> sum{77, 77};
    return meter.Read(sum.first, sum.second, clear) ? Sum(sum) : std::nullopt;
  };
  RateMeter meter;
  EXPECT_EQ(read(meter, true), std::nullopt);
  meter.Add(10, 5'000'000'000);
  meter.Add(20, 7'500'000'000);
  EXPECT_EQ(read(meter, false), Sum({30, 2500}));
  EXPECT_EQ(read(meter, true), Sum({30, 2500}));
  EXPECT_EQ(read(meter, false), std::nullopt);
  meter.Add(1, 9'000'000'000);
  EXPECT_EQ(read(meter, false), Sum({1, 0})) << "time before the clear doesn't count";

  RateMeter bounded(2, 2);
  for (int second = 0; second < 6; ++second) bounded.Add(1, second * 1'000'000'000LL);
  EXPECT_EQ(read(bounded, false), Sum({4, 3000}));  // of seconds 2 to 5
}

}  // namespace
}  // namespace qvsvr::kelvo

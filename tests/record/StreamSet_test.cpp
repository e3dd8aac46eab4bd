#include "record/StreamSet.h"

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
  streams.Add(NewStream(0));
  RecordStream& encoder = streams.Add(NewStream(0x20120281));
  streams.Add(NewStream(0x001202FF));
  RecordStream& channel = streams.Add(NewStream(0x20120225));
  channel.AltId = 0x20120230;
  streams.Add(NewStream(0x20120230));
  streams.Changes();
  const std::pair<std::uint32_t, std::uint32_t> rows[] = {
      {0x20120225, 0x20120225}, {0x20120230, 0x20120225},  // by either id, the first stream's
      {0x20120224, 0x20120281}, {0x20120221, 0x20120281},  // encoder 1 of context 2
      {0x20120204, 0x001202FF}, {0x50120205, 0x001202FF},  // any context, any encoder
      {0x20120304, 0},          {0x20130204, 0},
  };
  for (const auto& [provider, wanted] : rows) EXPECT_EQ(Routed(provider), wanted) << provider;
  EXPECT_EQ(streams.Route(0), nullptr) << "provider 0 is nobody's id";

  channel.AltId = 0;
  streams.Remove(streams.Find(0x20120230));
  EXPECT_EQ(Routed(0x20120230), 0x20120281u);
  streams.Remove(&encoder);
  EXPECT_EQ(Routed(0x20120230), 0x001202FFu);
  EXPECT_EQ(streams.Find(0x20120281), nullptr);
  EXPECT_EQ(streams.Find(0x20120225), &channel);
  EXPECT_EQ(streams.All().size(), 3u);
}

}  // namespace
}  // namespace qvsvr::kelvo

// The bench's messages: what is written is read back, and nothing else is taken for a message. That
// each field means the same on both sides is proved by the contract over the bench.
#include "simulation/engine/wire.h"

#include <gtest/gtest.h>

#include <memory>

#include "simulation/bench/bench_wire.h"
#include "simulation/bench/stream_queue.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;
using simulation::Bytes;

const Connection kConnection = {.layer = kLayerRecvAcceptV6,
                                .app_id = {'a', 0, 0, 0},
                                .user_sids = {{1, 2, 3}, {}, {4}},
                                .package_sid = Bytes{5, 6}};

template <typename Record>
Bytes BytesOf(const Record& record) {
  Bytes bytes;
  WireWriter writer(bytes);
  Put(writer, record);
  return bytes;
}

TEST(Wire, AWholeRecordComesBackAndACutOneIsRefusedAndGivesNothingMore) {
  const auto expect_whole_alone = [](const Bytes& message, const auto& take) {
    WireReader whole(message.data(), message.size());
    EXPECT_EQ(BytesOf(take(whole)), message);
    EXPECT_TRUE(whole.Finished());
    for (std::size_t size = 0; size < message.size(); ++size) {
      const Bytes cut(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(size));
      WireReader reader(cut.data(), cut.size());
      (void)take(reader);
      EXPECT_FALSE(reader.ok()) << "cut to " << size;
      EXPECT_EQ(reader.U8(), 0u);
    }
  };
  Filter filter;
  filter.name = {L'n', 0, L'\u20AC', wchar_t(0xDC00), L'x', wchar_t(0xD800)};
  filter.description = L"\u00FC\U0001F600z";
  filter.provider = kLayerConnectV4;
  filter.conditions = {{kFieldAppId, 7, ByteBlob{{1, 2}}}, {kFieldAppId, 7, OtherValue{15}}};
  const VerdictSummary verdict{true, true, true, kFieldAppId, L"decides", std::uint64_t{1} << 40};
  expect_whole_alone(BytesOf(filter), TakeFilter);
  expect_whole_alone(BytesOf(verdict), TakeVerdictSummary);
  expect_whole_alone(BytesOf(FilterChange{true, kFieldAppId, 0x123456789ABCDEF0}),
                     TakeFilterChange);
  expect_whole_alone(BytesOf(NetEvent{.connection = kConnection}), TakeNetEvent);
}

// A reader who is behind costs the bench a bounded room, and loses nothing that was queued.
TEST(StreamQueue, GivesWhatFitIntoItAndThenItsEnd) {
  StreamQueues queues;
  const auto queue = std::make_shared<StreamQueue>(2);
  const StreamId id = queues.Add(queue);
  ASSERT_EQ(queues.Find(id), queue);
  Bytes message;
  for (std::uint8_t n = 1; n <= 3; ++n) queue->Push({n});
  ASSERT_TRUE(queue->Take(message));
  EXPECT_EQ(message, Bytes{1});
  queue->Push({4});
  queues.Remove(id);
  queue->Push({5});
  ASSERT_TRUE(queue->Take(message));
  EXPECT_EQ(message, Bytes{2});
  ASSERT_TRUE(queue->Take(message));
  EXPECT_EQ(message, Bytes{4});
  EXPECT_FALSE(queue->Take(message));
  EXPECT_EQ(queues.Find(id), nullptr);
}

}  // namespace
}  // namespace simulation

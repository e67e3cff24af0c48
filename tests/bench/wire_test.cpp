// The bench's messages: what is written is read back, and nothing else is taken for a message. That
// each field means the same on both sides is proved by the contract over the bench.
#include "simulation/engine/wire.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>

#include "simulation/bench/bench_wire.h"
#include "simulation/bench/stream_queue.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;
using kestrelon::Guid;
using simulation::Bytes;

constexpr Guid kOneKey = kestrelon::MakeGuid("01234567-89ab-cdef-0123-456789abcdef");
constexpr Guid kOtherKey = kestrelon::MakeGuid("fedcba98-7654-3210-fedc-ba9876543210");
constexpr ByteArray16 kArray = {0xFE, 0x80, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};

// One of each alternative, with every plain one at the ends of a range too.
const Value kValues[] = {
    std::monostate{},
    std::uint8_t{0xAB},
    std::uint16_t{0xABCD},
    std::uint32_t{0xABCDEF01},
    std::uint64_t{0xABCDEF0123456789},
    kArray,
    ByteBlob{{1, 2, 0, 255}},
    ByteBlob{},
    SidValue{{1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0}},
    DescriptorValue{{1, 0, 4, 128}},
    Ipv4Mask{0xC0A80000, 0xFFFF0000},
    Ipv6Mask{kArray, 64},
    ValueRange{std::monostate{}, std::uint8_t{9}},
    ValueRange{std::uint16_t{443}, std::uint32_t{1} << 31},
    ValueRange{std::uint64_t{1} << 63, kArray},
    OtherValue{15},
};

Filter FilterWithEverything() {
  Filter filter{.key = kOneKey,
                // With what is no text of its own in UTF-16.
                .name = {L'n', 0, L'\u20AC', wchar_t(0xDC00), L'x', wchar_t(0xD800)},
                .description = L"\u00FC\U0001F600z",
                .flags = 0x49,
                .provider = kOtherKey,
                .layer = kLayerConnectV6,
                .sublayer = kFieldAppId,
                .weight = std::uint8_t{12},
                .conditions = {},
                .action = 0x1002,
                .id = 0x123456789ABCDEF0};
  for (const Value& value : kValues) filter.conditions.push_back({kOtherKey, 7, value});
  return filter;
}

const Connection kConnection = {.layer = kLayerRecvAcceptV6,
                                .app_id = {'a', 0, 0, 0},
                                .user_sids = {{1, 2, 3}, {}, {4}},
                                .package_sid = Bytes{5, 6},
                                .protocol = 58,
                                .local_v4 = 0x01020304,
                                .remote_v4 = 0x05060708,
                                .local_v6 = kArray,
                                .remote_v6 = {1, 2},
                                .local_port = 0x1234,
                                .remote_port = 0x5678,
                                .flags = 1};

template <typename Record>
Bytes BytesOf(const Record& record) {
  Bytes bytes;
  WireWriter writer(bytes);
  Put(writer, record);
  return bytes;
}

// Counts of lists are checked against these: a greater one than the truth refuses good messages.
TEST(Wire, SmallestSizesAreThoseOfEmptyRecords) {
  Filter filter;
  EXPECT_EQ(BytesOf(filter).size(), kSmallestFilter);
  filter.conditions.resize(1);
  EXPECT_EQ(BytesOf(filter).size(), kSmallestFilter + kSmallestCondition);
  EXPECT_EQ(BytesOf(Connection{}).size(), kSmallestConnection);
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
  const VerdictSummary verdict{true, true, true, kOneKey, L"decides", std::uint64_t{1} << 40};
  expect_whole_alone(BytesOf(FilterWithEverything()), TakeFilter);
  expect_whole_alone(BytesOf(kConnection), TakeConnection);
  expect_whole_alone(BytesOf(verdict), TakeVerdictSummary);
  expect_whole_alone(BytesOf(FilterChange{true, kOtherKey, 0x123456789ABCDEF0}), TakeFilterChange);
  expect_whole_alone(BytesOf(NetEvent{.connection = kConnection}), TakeNetEvent);
}

// There is one form of each filter: what is read from any bytes is written as the same bytes again.
TEST(Wire, SpoiltBytesAreRefusedOrMeanWhatTheySay) {
  const Bytes good = BytesOf(FilterWithEverything());
  constexpr unsigned kSeed = 48;
  std::mt19937 random(kSeed);
  for (int round = 0; round < 20000; ++round) {
    Bytes bytes = good;
    for (int i = 0; i < 4; ++i) {
      bytes[random() % bytes.size()] = static_cast<std::uint8_t>(random());
    }
    bytes.resize(random() % 2 == 0 ? bytes.size() : random() % bytes.size());
    WireReader reader(bytes.data(), bytes.size());
    const Filter filter = TakeFilter(reader);
    if (reader.Finished()) {
      EXPECT_EQ(BytesOf(filter), bytes) << "round " << round;
    }
  }
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

#include "events/allowed_connections.h"

#include <gtest/gtest.h>

namespace kestrelon {
namespace {

constexpr const wchar_t* kProgram = L"C:\\App\\App.exe";

ConnectionRecord Record(std::uint32_t port, std::int64_t time, const std::wstring& rule = L"") {
  ConnectionRecord record;
  record.app = kProgram;
  record.protocol = 6;
  record.remote_addr = L"203.0.113.5";
  record.remote_port = port;
  record.first = record.last = time;
  record.count = 1;
  record.rule = rule;
  return record;
}

std::size_t Kept() {
  return AllowedConnections().connections.size();
}

TEST(AllowedConnections, SelectionDecidesWhatIsWanted) {
  const AllowedSelection all = {{}, {}, {}, true};
  const AllowedSelection listed = {
      {L"c:\\app\\app.exe"}, {L"S-1-15-2-1"}, {L"Downloads"}, true, false};
  const AllowedSelection rules = {{L"c:\\app\\app.exe"}, {}, {L"Downloads"}, false, false};
  const struct {
    const AllowedSelection& selection;
    std::wstring app, package, rule;
    bool wanted;
  } rows[] = {
      {all, L"x", L"", L"", true},
      {listed, kProgram, L"", L"", true},
      {listed, L"x", L"", L"", false},
      {listed, L"C:\\App\\App.exe2", L"", L"", false},
      {listed, L"x", L"s-1-15-2-1", L"", true},
      {listed, L"x", L"", L"downloads", true},
      {listed, L"x", L"", L"uploads", false},
      {rules, kProgram, L"", L"Downloads", true},
  };
  for (const auto& row : rows) {
    SelectAllowed(row.selection, true);
    ClearAllowedConnections();
    ConnectionRecord record = Record(443, 100, row.rule);
    record.app = row.app;
    record.package_sid = row.package;
    RecordAllowedConnection(record);
    EXPECT_EQ(Kept(), row.wanted ? 1u : 0u) << "row " << &row - rows;
  }
}

TEST(AllowedConnections, RepeatIsCountedAndKeepsTheFirstTime) {
  SelectAllowed({{}, {}, {}, true}, true);
  for (const std::int64_t time : {100, 300, 200}) RecordAllowedConnection(Record(443, time));
  void (*const differences[])(ConnectionRecord&) = {
      [](auto& r) { r.app = L"C:\\b.exe"; },   [](auto& r) { r.package_sid = L"S-1-15-2-1"; },
      [](auto& r) { r.direction = 1; },        [](auto& r) { r.protocol = 17; },
      [](auto& r) { r.remote_addr = L"::1"; }, [](auto& r) { r.remote_port = 80; },
      [](auto& r) { r.rule = L"Downloads"; },  [](auto& r) { r.app = L"c:\\APP\\app.EXE"; },
  };
  for (const auto differ : differences) {
    ConnectionRecord record = Record(443, 250);
    differ(record);
    RecordAllowedConnection(record);
  }
  const std::vector<ConnectionRecord> kept = AllowedConnections().connections;
  ASSERT_EQ(kept.size(), 8u);
  // In the order of the keys: behind those of the package and of the other protocol.
  EXPECT_EQ(ConnectionRecordToJson(kept[2]).Dump(false),
            R"({"app":"C:\\App\\App.exe","dir":"out","protocol":6,"remote_addr":"203.0.113.5",)"
            R"("remote_port":443,"first":100,"last":300,"count":4})");
}

// Which is neither the first that came nor the first in the table's order.
TEST(AllowedConnections, FullTableLosesTheLongestUnseen) {
  SelectAllowed({{}, {}, {}, true}, true);
  for (std::uint32_t port = 1; port <= 5000; ++port) {
    RecordAllowedConnection(Record(port, port == 77 ? 1 : 100));
  }
  RecordAllowedConnection(Record(5000, 100));  // a repeat needs no room
  EXPECT_EQ(Kept(), 5000u);
  RecordAllowedConnection(Record(5001, 100));
  const std::vector<ConnectionRecord> kept = AllowedConnections().connections;
  EXPECT_EQ(kept.size(), 5000u);
  for (const ConnectionRecord& record : kept) EXPECT_NE(record.remote_port, 77u);
}

TEST(AllowedConnections, OnlyWhatIsStillAskedForStays) {
  const std::vector<std::wstring> rules = {L"Downloads"};
  SelectAllowed({{}, {}, rules, true}, true);
  RecordAllowedConnection(Record(443, 100));
  RecordAllowedConnection(Record(443, 100, L"Downloads"));
  SelectAllowed({{}, {}, rules, false}, true);
  ASSERT_EQ(Kept(), 1u);
  EXPECT_EQ(AllowedConnections().connections[0].rule, L"Downloads");
  SelectAllowed({{}, {}, rules, false}, false);
  EXPECT_EQ(Kept(), 0u);
}

}  // namespace
}  // namespace kestrelon

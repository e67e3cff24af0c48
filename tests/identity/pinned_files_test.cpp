#include "identity/pinned_files.h"

#include <gtest/gtest.h>

#include "identity/file_usn.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;

constexpr const wchar_t* kFile = L"C:\\Apps\\App.exe";

PlanEntry Pinned(const wchar_t* path) {
  PlanEntry entry;
  entry.path = path;
  entry.allow = true;
  entry.hash_pinned = true;
  entry.usn = FileUsn(path);
  return entry;
}

// A journal record with another number at the place of each version.
std::vector<std::uint8_t> Record(std::uint8_t version, std::size_t size) {
  std::vector<std::uint8_t> record(80);
  record[4] = version;
  record[24] = 0x02;
  record[31] = 0x01;
  record[40] = 0x03;
  record.resize(size);
  return record;
}

TEST(FileUsn, IsReadFromRecordsOfTwoVersions) {
  EXPECT_EQ(UsnOfRecord(Record(2, 64)), 0x0100000000000002);
  EXPECT_EQ(UsnOfRecord(Record(3, 80)), 3);
  EXPECT_EQ(UsnOfRecord(Record(2, 63)), -1);
  EXPECT_EQ(UsnOfRecord(Record(3, 79)), -1);
  EXPECT_EQ(UsnOfRecord(Record(4, 80)), -1);
  EXPECT_EQ(UsnOfRecord({}), -1);
}

TEST(PinnedFiles, WriteAfterTheComparisonIsAChangeOfItsOwn) {
  auto& files = TheMachine().files;
  files.Write(kFile, "abc");
  SnapshotPinned({Pinned(kFile)});
  EXPECT_TRUE(ChangedPinnedFiles(L"c:\\apps").empty());
  files.Write(kFile, "abd");
  const std::vector<PinnedChange> changes = ChangedPinnedFiles(L"c:\\apps");
  files.Write(kFile, "abe");
  AcceptPinnedNumbers(changes);
  EXPECT_EQ(ChangedPinnedFiles(L"c:\\apps").size(), 1u);
  SnapshotPinned({Pinned(kFile)});
  AcceptPinnedNumbers(changes);
  EXPECT_TRUE(ChangedPinnedFiles(L"c:\\apps").empty()) << "the snapshot's number stands";
  files.Remove(kFile);
  EXPECT_EQ(ChangedPinnedFiles(L"c:\\apps").size(), 1u);
}

}  // namespace
}  // namespace kestrelon

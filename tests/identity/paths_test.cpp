#include "identity/paths.h"

#include <gtest/gtest.h>

#include "identity/device_paths.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

using simulation::TheMachine;

TEST(Paths, ExpansionLeavesWhatItDoesNotKnow) {
  EXPECT_EQ(ExpandPath(L"%SystemRoot%\\x.exe"), L"C:\\Windows\\x.exe");
  EXPECT_EQ(ExpandPath(L"C:\\%nosuch%\\100%.exe"), L"C:\\%nosuch%\\100%.exe");
  TheMachine().faults.FailAlways("ExpandEnvironment", platform::kInsufficientBuffer);
  EXPECT_EQ(ExpandPath(L"%SystemRoot%\\x.exe"), L"%SystemRoot%\\x.exe");
}

TEST(Paths, NormalFormFollowsLinksAndDropsThePrefix) {
  auto& files = TheMachine().files;
  files.Write(L"C:\\Apps\\Real.exe", "x");
  files.SetLink(L"C:\\Apps\\link.exe", L"C:\\Apps\\Real.exe");
  files.Write(L"\\\\server\\share\\Name.exe", "x");
  files.SetLink(L"C:\\Apps\\share.exe", L"\\\\server\\share\\Name.exe");
  EXPECT_EQ(NormalizePath(L"c:\\APPS\\real.EXE"), L"C:\\Apps\\Real.exe");
  EXPECT_EQ(NormalizePath(L"C:\\Apps\\link.exe"), L"C:\\Apps\\Real.exe");
  EXPECT_EQ(NormalizePath(L"C:\\Apps\\share.exe"), L"\\\\server\\share\\Name.exe");
  EXPECT_EQ(NormalizePath(L"c:\\apps\\MISSING.exe"), L"c:\\apps\\MISSING.exe");
  TheMachine().faults.FailAlways("FinalPathName", platform::kAccessDenied);
  EXPECT_EQ(NormalizePath(L"c:\\apps\\real.exe"), L"c:\\apps\\real.exe");
}

TEST(DevicePaths, DeviceBecomesItsDrive) {
  TheMachine().files.Write(L"C:\\Apps\\Real.exe", "x");
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"\\device\\harddiskvolume3\\apps\\real.exe", L"C:\\Apps\\Real.exe"},
      {L"\\device\\harddiskvolume4\\gone.exe", L"D:\\gone.exe"},
      {L"\\device\\harddiskvolume30\\gone.exe", L"\\device\\harddiskvolume30\\gone.exe"},
      {L"\\device\\harddiskvolume3", L"\\device\\harddiskvolume3"},
      {L"\\Device\\Mup\\server\\share\\x.exe", L"\\\\server\\share\\x.exe"},
      {L"c:\\apps\\real.exe", L"C:\\Apps\\Real.exe"},
      {L"System", L"System"},
      {L"", L""},
  };
  for (const auto& [device_path, path] : rows) EXPECT_EQ(DeviceToWin32(device_path), path);
}

}  // namespace
}  // namespace kestrelon

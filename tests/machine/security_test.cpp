// Descriptors and SIDs in their binary forms, compared with what Windows gives for the same texts.
#include <gtest/gtest.h>

#include "platform/security.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

TEST(Security, DescriptorHasTheSelfRelativeLayout) {
  const SecurityDescriptor expected = {
      1,    0,    0x04, 0x90,              // revision; DACL present, DACL protected, self-relative
      0,    0,    0,    0,                 // no owner
      0,    0,    0,    0,                 // no group
      0,    0,    0,    0,                 // no SACL
      20,   0,    0,    0,                 // DACL
      2,    0,    52,   0,    2, 0, 0, 0,  // ACL: revision 2, 52 bytes, 2 entries
      0,    3,    20,   0,                 // allow, object and container inherit
      0xFF, 0x01, 0x1F, 0,                 // FA
      1,    1,    0,    0,    0, 0, 0, 5, 18, 0, 0, 0, 0,    0, 24, 0,  // allow
      0xFF, 0x07, 0x0F, 0,                                              // 0xf07ff
      1,    2,    0,    0,    0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0,  0,
  };
  SecurityDescriptor descriptor;
  ASSERT_EQ(DescriptorFromText(L"D:P(A;OICI;FA;;;SY)(A;;0xf07ff;;;BA)", descriptor), kSuccess);
  EXPECT_EQ(descriptor, expected);
}

TEST(Security, OwnerStandsBehindTheList) {
  const SecurityDescriptor expected = {
      1, 0, 0x04, 0x80, 48, 0, 0,  0, 0, 0, 0, 0, 0, 0, 0, 0, 20, 0, 0, 0, 2,  0, 28, 0,
      1, 0, 0,    0,    1,  0, 20, 0, 1, 0, 0, 0,  // deny CC
      1, 1, 0,    0,    0,  0, 0,  1, 0, 0, 0, 0, 1, 1, 0, 0, 0,  0, 0, 5, 19, 0, 0,  0,
  };
  SecurityDescriptor descriptor;
  ASSERT_EQ(DescriptorFromText(L"O:LSD:(D;;CC;;;WD)", descriptor), kSuccess);
  EXPECT_EQ(descriptor, expected);
}

TEST(Security, MalformedDescriptorsAreRefused) {
  const struct {
    const wchar_t* text;
    Code code;
  } rows[] = {
      {L"D", kInvalidParameter},
      {L"X:(A;;CC;;;SY)", kInvalidParameter},
      {L"D:(A;;CC;;;SY)D:(A;;CC;;;SY)", kInvalidParameter},
      {L"D:(A;;CC;;;SY", 1336},
      {L"D:(A;;CC;;SY)", 1336},
      {L"D:(Q;;CC;;;SY)", 1336},
      {L"D:(A;;ZZ;;;SY)", 1336},
      {L"D:(A;;0x1FFFFFFFF;;;SY)", 1336},
      {L"D:(A;;CC;;;S-1-5-x)", 1337},
      {L"O:D:(A;;CC;;;SY)", 1337},
  };
  for (const auto& row : rows) {
    SecurityDescriptor descriptor = {42};
    EXPECT_EQ(DescriptorFromText(row.text, descriptor), row.code);
    EXPECT_EQ(descriptor, SecurityDescriptor{42});
  }
}

TEST(Security, SidTexts) {
  Sid sid;
  ASSERT_EQ(SidFromText(L"S-1-5-21-4294967295-1", sid), kSuccess);
  EXPECT_EQ(sid, (Sid{1, 3, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0, 255, 255, 255, 255, 1, 0, 0, 0}));
  ASSERT_EQ(SidFromText(L"ba", sid), kSuccess);
  EXPECT_EQ(sid, (Sid{1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0}));
  for (const wchar_t* text :
       {L"", L"S-1-5", L"S-1-5-", L"S-2-5-18", L"S-1-5-4294967296", L"S-1-5-18 ", L"XX",
        L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"}) {
    EXPECT_EQ(SidFromText(text, sid), 1337u);
  }
}

// The three derived SIDs are those of every Windows machine.
TEST(Security, NamesOfServicesAndPackagesGiveTheirSids) {
  std::wstring sid;
  EXPECT_EQ(SidOfAccount(L"NT SERVICE\\TrustedInstaller", sid), kNoneMapped);
  TheMachine().services.Add({.name = L"TrustedInstaller", .display_name = L"", .binary_path = L""});
  ASSERT_EQ(SidOfAccount(L"nt service\\trustedinstaller", sid), kSuccess);
  EXPECT_EQ(sid, L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464");
  ASSERT_EQ(SidOfAccount(L"NT AUTHORITY\\SYSTEM", sid), kSuccess);
  EXPECT_EQ(sid, L"S-1-5-18");
  ASSERT_EQ(SidOfPackage(L"Microsoft.MicrosoftEdge_8wekyb3d8bbwe", sid), kSuccess);
  EXPECT_EQ(sid,
            L"S-1-15-2-3624051433-2125758914-1423191267-1740899205-1073925389-3782572162-"
            L"737981194");
}

}  // namespace
}  // namespace simulation

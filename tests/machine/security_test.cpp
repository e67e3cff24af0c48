// The codes with which Windows refuses texts of descriptors and SIDs, and SIDs made from names.
#include <gtest/gtest.h>

#include "platform/security.h"
#include "simulation/machine/machine.h"

namespace simulation {
namespace {

using namespace kestrelon::platform;

TEST(Security, MalformedTextsAreRefused) {
  const struct {
    const wchar_t* text;
    Code code;
  } rows[] = {
      {L"D", kInvalidParameter},
      {L"X:(A;;CC;;;SY)", kInvalidParameter},
      {L"D:(A;;CC;;;SY)D:(A;;CC;;;SY)", kInvalidParameter},
      {L"D:(A;;CC;;;SY", 1336},
      {L"D:(A;;CC;;SY)", 1336},
      {L"D:(A;;ZZ;;;SY)", 1336},
      {L"D:(A;;0x1FFFFFFFF;;;SY)", 1336},
      {L"D:(A;;CC;;;S-1-5-x)", 1337},
      {L"O:D:(A;;CC;;;SY)", 1337},
  };
  for (const auto& row : rows) {
    SecurityDescriptor descriptor;
    EXPECT_EQ(DescriptorFromText(row.text, descriptor), row.code);
  }
  Sid sid;
  EXPECT_EQ(SidFromText(L"ba", sid), kSuccess) << "in lower case too";
  for (const wchar_t* text :
       {L"", L"S-1-5", L"S-1-5-", L"S-2-5-18", L"S-1-5-4294967296", L"S-1-5-18 ", L"XX",
        L"S-1-5-1-2-3-4-5-6-7-8-9-10-11-12-13-14-15-16"}) {
    EXPECT_EQ(SidFromText(text, sid), 1337u);
  }
}

TEST(Security, ServiceHasItsSidWhileItIsThere) {
  std::wstring sid;
  EXPECT_EQ(SidOfAccount(L"NT SERVICE\\TrustedInstaller", sid), kNoneMapped);
  TheMachine().services.Add({.name = L"TrustedInstaller", .display_name = L"", .binary_path = L""});
  ASSERT_EQ(SidOfAccount(L"nt service\\trustedinstaller", sid), kSuccess);
  EXPECT_EQ(sid, L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464");
}

}  // namespace
}  // namespace simulation

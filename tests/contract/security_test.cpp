// Descriptors and SIDs.
#include "platform/security.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/contract/scratch.h"

namespace {

using namespace kestrelon::platform;
using namespace contract;

using Bytes = std::vector<std::uint8_t>;

const Bytes kSystemSid = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
const Bytes kLocalServiceSid = {1, 1, 0, 0, 0, 0, 0, 5, 19, 0, 0, 0};
const Bytes kAdministratorsSid = {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0};

Bytes Joined(std::initializer_list<Bytes> parts) {
  Bytes bytes;
  for (const Bytes& part : parts) bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

bool Contains(const Bytes& whole, const Bytes& part) {
  return std::search(whole.begin(), whole.end(), part.begin(), part.end()) != whole.end();
}

TEST(DescriptorFromText, GivesTheKnownBytes) {
  // Revision 1; a protected DACL, self-relative; neither owner nor group nor SACL.
  const Bytes head = {1, 0, 4,    0x90, 0, 0, 0, 0, 0,    0, 0, 0, 0, 0,
                      0, 0, 0x14, 0,    0, 0, 2, 0, 0x34, 0, 2, 0, 0, 0};
  const struct {
    const wchar_t* text;
    Bytes system, administrators;  // heads of their entries
  } cases[] = {
      {L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)",
       {0, 3, 0x14, 0, 0xFF, 0x01, 0x1F, 0},
       {0, 3, 0x18, 0, 0xFF, 0x01, 0x1F, 0}},
      {L"D:P(A;;0xf07ff;;;SY)(A;;0x603f4;;;BA)",
       {0, 0, 0x14, 0, 0xFF, 0x07, 0x0F, 0},
       {0, 0, 0x18, 0, 0xF4, 0x03, 0x06, 0}},
  };
  SecurityDescriptor descriptor;
  for (const auto& c : cases) {
    ASSERT_EQ(DescriptorFromText(c.text, descriptor), kSuccess);
    EXPECT_EQ(descriptor,
              Joined({head, c.system, kSystemSid, c.administrators, kAdministratorsSid}));
  }
  // With an owner the order of the parts is the platform's affair.
  ASSERT_EQ(DescriptorFromText(L"O:LSD:(A;;CC;;;S-1-5-18)", descriptor), kSuccess);
  EXPECT_TRUE(Contains(descriptor, kLocalServiceSid));
  EXPECT_TRUE(Contains(
      descriptor, Joined({{2, 0, 0x1C, 0, 1, 0, 0, 0}, {0, 0, 0x14, 0, 1, 0, 0, 0}, kSystemSid})));
}

TEST(DescriptorFromText, RefusesWhatItCanNotRead) {
  for (const wchar_t* text : {L"rubbish", L"D:(A;;CC;;;S-1-5-)", L"D:(A;;CC;;;not a sid)",
                              L"D:(A;;CC", L"D:(Q;;CC;;;SY)"}) {
    SecurityDescriptor descriptor = {7};
    EXPECT_NE(DescriptorFromText(text, descriptor), kSuccess) << testing::PrintToString(text);
    EXPECT_EQ(descriptor, SecurityDescriptor{7});
  }
}

TEST(SidFromText, GivesTheKnownBytesWhichAreReadBack) {
  const struct {
    const wchar_t* text;
    Bytes bytes;
    std::wstring full;
  } cases[] = {
      {L"SY", kSystemSid, L"S-1-5-18"},
      {L"BA", kAdministratorsSid, L"S-1-5-32-544"},
      {L"S-1-15-2-1-4294967295",
       {1, 3, 0, 0, 0, 0, 0, 15, 2, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF},
       L"S-1-15-2-1-4294967295"},
  };
  Sid sid;
  for (const auto& [text, bytes, full] : cases) {
    ASSERT_EQ(SidFromText(text, sid), kSuccess) << testing::PrintToString(text);
    EXPECT_EQ(sid, bytes);
    std::wstring written;
    EXPECT_EQ(SidText(sid, written), kSuccess);
    EXPECT_EQ(written, full);
  }
  sid = {7};
  for (const wchar_t* text : {L"S-1", L"x", L"S-1-5-18x"}) {
    EXPECT_NE(SidFromText(text, sid), kSuccess) << testing::PrintToString(text);
  }
  EXPECT_EQ(sid, Sid{7});
}

TEST(SidText, RefusesWhatIsNoSid) {
  const Bytes bad[] = {
      {},
      {1, 0, 0, 0, 0, 0, 0},                    // shorter than any
      {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0},    // a part is missing
      {1, 255, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0},  // more parts than a SID has
      {2, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0},    // of another revision
  };
  for (const Bytes& bytes : bad) {
    std::wstring text = L"unchanged";
    EXPECT_EQ(SidText(bytes, text), 1337u) << testing::PrintToString(bytes);
    EXPECT_EQ(text, L"unchanged");
  }
}

TEST(SidOfAccount, KnowsServicesByTheirName) {
  std::wstring sid;
  ASSERT_EQ(SidOfAccount(L"NT SERVICE\\EventLog", sid), kSuccess);
  EXPECT_EQ(sid, L"S-1-5-80-880578595-1860270145-482643319-2788375705-1540778122");
}

TEST(SidOfAccount, FailsForAnAccountThatIsNotThere) {
  std::wstring sid = L"unchanged";
  EXPECT_EQ(SidOfAccount(L"NO SUCH DOMAIN\\nobody", sid), kNoneMapped);
  EXPECT_EQ(sid, L"unchanged");
}

TEST(SidOfPackage, FollowsFromTheNameAlone) {
  std::wstring sid;
  ASSERT_EQ(SidOfPackage(L"Microsoft.WindowsCalculator_8wekyb3d8bbwe", sid), kSuccess);
  EXPECT_EQ(sid,
            L"S-1-15-2-466767348-3739614953-2700836392-1801644223-4227750657-1087833535-"
            L"2488631167");
}

TEST(ProtectFile, NeedsADaclAndAFile) {
  const std::wstring directory = FreshDirectory();
  SecurityDescriptor descriptor;
  ASSERT_EQ(DescriptorFromText(L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)", descriptor), kSuccess);
  EXPECT_EQ(ProtectFile(directory, descriptor), kSuccess);
  EXPECT_EQ(ProtectFile(directory + L"\\none", descriptor), kFileNotFound);
  EXPECT_EQ(ProtectFile(directory, {}), kInvalidSecurityDescriptor);
  ASSERT_EQ(DescriptorFromText(L"O:SY", descriptor), kSuccess);
  EXPECT_EQ(ProtectFile(directory, descriptor), kInvalidSecurityDescriptor);
}

}  // namespace

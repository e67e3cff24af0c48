// The forms of addresses, and the machine's adapters.
#include "platform/network.h"

#include <gtest/gtest.h>

#include <atomic>

namespace {

using namespace kestrelon::platform;

TEST(Ipv4FromText, TakesFourDecimalPartsAlone) {
  const std::pair<const wchar_t*, std::uint32_t> good[] = {
      {L"0.0.0.0", 0}, {L"10.1.2.3", 0x0A010203}, {L"255.255.255.255", 0xFFFFFFFF}};
  for (const auto& [text, expected] : good) {
    std::uint32_t address = 1;
    EXPECT_TRUE(Ipv4FromText(text, address)) << testing::PrintToString(text);
    EXPECT_EQ(address, expected);
  }
  const std::wstring with_a_null(L"1.2.3.4\0x", 9);
  const std::wstring bad[] = {L"",          L"1",          L"1.2.3",    L"1.2.3.4.5",
                              L"256.1.1.1", L"1.2.3.-4",   L"1.2.3.4 ", L" 1.2.3.4",
                              L"1..2.3",    L"1.2.3.",     L".1.2.3",   L"1.2.3.a",
                              L"1.2.3.0x4", L"1.2.3.4/8",  L"::1",      L"1.2.3.\u0664",
                              L"1,2,3,4",   L"1.2.3.4:80", with_a_null};
  for (const std::wstring& text : bad) {
    std::uint32_t address = 1;
    EXPECT_FALSE(Ipv4FromText(text, address)) << testing::PrintToString(text);
    EXPECT_EQ(address, 1u);
  }
}

TEST(Ipv6FromText, TakesTheTextFormsWithoutAZone) {
  const std::pair<const wchar_t*, Ipv6Address> good[] = {
      {L"::", {}},
      {L"::1", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}},
      {L"fe80::", {0xFE, 0x80}},
      {L"2001:DB8:0:0:8:800:200C:417A",
       {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 8, 8, 0, 0x20, 0x0C, 0x41, 0x7A}},
      {L"2001:db8::8:800:200c:417a",
       {0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 8, 8, 0, 0x20, 0x0C, 0x41, 0x7A}},
      {L"::ffff:1.2.3.4", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 1, 2, 3, 4}},
  };
  for (const auto& [text, expected] : good) {
    Ipv6Address address = {9};
    EXPECT_TRUE(Ipv6FromText(text, address)) << testing::PrintToString(text);
    EXPECT_EQ(address, expected) << testing::PrintToString(text);
  }
  const std::wstring bad[] = {
      L"",        L":",       L":::",  L"1::2::3",    L"12345::", L"1:2:3:4:5:6:7",
      L"g::",     L"[::1]",   L"::1 ", L"fe80::1%3",  L"::1/64",  L"1:2:3:4:5:6:7:8:9",
      L"::1.2.3", L"1.2.3.4", L"::-1", {L"::1\0x", 5}};
  for (const std::wstring& text : bad) {
    Ipv6Address address = {9};
    EXPECT_FALSE(Ipv6FromText(text, address)) << testing::PrintToString(text);
    EXPECT_EQ(address, Ipv6Address{9});
  }
}

TEST(AddressText, IsTheShortestForm) {
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"0:0:0:0:0:0:0:0", L"::"},
      {L"2001:0DB8:0000:0000:0008:0800:200C:417A", L"2001:db8::8:800:200c:417a"},
      {L"2001:db8::1:0:0:1", L"2001:db8::1:0:0:1"},  // of equal runs the first
      {L"1:0:0:2:0:0:0:3", L"1:0:0:2::3"},           // of others the longest
      {L"1::2:3:4:5:6:7", L"1:0:2:3:4:5:6:7"},       // one zero is written out
      {L"::ffff:102:304", L"::ffff:1.2.3.4"},
  };
  for (const auto& [text, shortest] : cases) {
    Ipv6Address address{};
    ASSERT_TRUE(Ipv6FromText(text, address)) << testing::PrintToString(text);
    EXPECT_EQ(Ipv6Text(address), shortest);
  }
}

TEST(ListAdapters, GivesServersInTheFormOfTheirFamily) {
  constexpr std::uint32_t kSkipAnycastMulticastAndNames = 0x26;
  std::vector<Adapter> adapters;
  ASSERT_EQ(ListAdapters(kSkipAnycastMulticastAndNames, adapters), kSuccess);
  EXPECT_FALSE(adapters.empty());
  for (const Adapter& adapter : adapters) {
    for (const DnsServer& server : adapter.dns_servers) {
      ASSERT_TRUE(server.family == 4 || server.family == 6);
      std::uint32_t v4 = 0;
      Ipv6Address v6{};
      const std::wstring text = server.text.substr(0, server.text.find(L'%'));
      EXPECT_TRUE(server.family == 4 ? Ipv4FromText(text, v4) : Ipv6FromText(text, v6));
    }
  }
}

TEST(InterfaceNotification, TellsOfNoChangeAtItsRegistration) {
  std::atomic<int> calls = 0;
  const auto count = [](void* context) { ++*static_cast<std::atomic<int>*>(context); };
  InterfaceNotification first = 0;
  InterfaceNotification second = 0;
  ASSERT_EQ(NotifyInterfaceChanges(count, &calls, first), kSuccess);
  ASSERT_EQ(NotifyInterfaceChanges(count, &calls, second), kSuccess);
  EXPECT_TRUE(first != 0 && second != 0 && first != second);
  for (const InterfaceNotification one : {first, second, InterfaceNotification{0}}) {
    EXPECT_EQ(CancelInterfaceNotification(one), kSuccess);
  }
  EXPECT_EQ(calls, 0);
}

}  // namespace

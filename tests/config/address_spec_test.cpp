#include "config/address_spec.h"

#include <gtest/gtest.h>

#include "base/format.h"
#include "base/text.h"
#include "config/app_reference.h"

namespace kestrelon {
namespace {

// An entry as a person would check it: "10.0.0.0-10.255.255.255" or "fe80..01/10".
std::wstring TextOf(const AddressEntry& entry) {
  if (entry.family == 6) {
    return Format(L"%s/%u", HexText(entry.address.data(), entry.address.size()), entry.prefix);
  }
  const auto dotted = [](std::uint32_t address) {
    return Format(L"%u.%u.%u.%u", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF,
                  address & 0xFF);
  };
  return dotted(entry.low) + L"-" + dotted(entry.high);
}

TEST(AddressSpec, ItemsAreReadInTheirOrder) {
  // With the entries, each followed by a blank.
  const std::pair<const wchar_t*, const wchar_t*> rows[] = {
      {L"", L""},
      {L" , ;\t ", L""},
      {L"$DNS", L""},
      {L"$dns, 1.1.1.1", L"1.1.1.1-1.1.1.1 "},
      {L"1.2.3.4 5.6.7.8", L"1.2.3.4-1.2.3.4 5.6.7.8-5.6.7.8 "},
      {L"9.9.9.9;9.9.9.9\t0.0.0.0", L"9.9.9.9-9.9.9.9 9.9.9.9-9.9.9.9 0.0.0.0-0.0.0.0 "},
      {L"\r\n1.1.1.1\r\n, 2.2.2.2", L"1.1.1.1-1.1.1.1 2.2.2.2-2.2.2.2 "},
      {L"10.1.2.3/8", L"10.0.0.0-10.255.255.255 "},
      {L"0.0.0.0/0", L"0.0.0.0-255.255.255.255 "},
      {L"255.255.255.255/31", L"255.255.255.254-255.255.255.255 "},
      {L"1.2.3.4/0000000024", L"1.2.3.0-1.2.3.255 "},
      {L"10.0.0.1-10.0.0.1", L"10.0.0.1-10.0.0.1 "},
      {L"10.0.0.1 \t-  10.0.0.9", L"10.0.0.1-10.0.0.9 "},
      {L"0.0.0.0-255.255.255.255", L"0.0.0.0-255.255.255.255 "},
      {L"fe80::1/10", L"fe800000000000000000000000000001/10 "},
      {L"::/0", L"00000000000000000000000000000000/0 "},
      {L"2001:db8::1", L"20010db8000000000000000000000001/128 "},
      {L"::ffff:1.2.3.4", L"00000000000000000000ffff01020304/128 "},
  };
  for (const auto& [text, expected] : rows) {
    std::vector<AddressEntry> entries(1);
    std::wstring error;
    EXPECT_TRUE(ParseAddressSpec(text, entries, error)) << text << L": " << error;
    std::wstring read;
    for (const AddressEntry& entry : entries) read += TextOf(entry) + L" ";
    EXPECT_EQ(read, expected) << text;
  }
}

TEST(AddressSpec, InvalidItemsFailWithTheirText) {
  const std::pair<std::wstring, std::vector<std::wstring>> families[] = {
      {L"invalid IP address: ", {L"1.2.3", L"1.2.3.256", L"example.com", L"$dns6", L"1::2::3"}},
      {L"invalid network (CIDR): ",
       {L"1.2.3.4/33", L"1.2.3.4/", L"1.2.3.4/x", L"1.2.3.4/24/24", L"1.2.3.4/00000000024",
        L"1.2.3.4/+8", L"::/129", L"/8"}},
      {L"invalid IPv4 range: ",
       {L"10.0.0.9-10.0.0.1", L"fe80::1-fe80::2", L"1.1.1.1-", L"1.1.1.1-2.2.2.2-3.3.3.3",
        L"10.0.0.0/8-11.0.0.0"}}};
  for (const auto& [error_of_item, items] : families) {
    for (const std::wstring& item : items) {
      std::vector<AddressEntry> entries;
      std::wstring error;
      EXPECT_FALSE(ParseAddressSpec(L"1.1.1.1, " + item, entries, error)) << item;
      EXPECT_EQ(error, error_of_item + item);
      EXPECT_EQ(entries.size(), 1u) << item;
    }
  }
}

TEST(PortSpec, RangesAndSinglePorts) {
  using Ports = std::vector<PortRange>;
  const std::pair<const wchar_t*, Ports> rows[] = {
      {L"", {}},
      {L" , ; ", {}},
      {L"80, 443;8000-8100", {{80, 80}, {443, 443}, {8000, 8100}}},
      {L"80 - 90", {{80, 90}}},
      {L"0 65535", {{0, 0}, {65535, 65535}}},
      {L"080 0000000080", {{80, 80}, {80, 80}}},
      {L"5-5,5", {{5, 5}, {5, 5}}},
  };
  for (const auto& [text, expected] : rows) {
    Ports ports(1);
    std::wstring error;
    EXPECT_TRUE(ParsePortSpec(text, ports, error)) << text << L": " << error;
    EXPECT_EQ(ports, expected) << text;
  }
  for (const wchar_t* item : {L"80-", L"-80", L"-", L"90-80", L"65536", L"web", L"80-90-100",
                              L"00000000080", L"1-65536", L"+80", L"80/tcp", L"$dns"}) {
    Ports ports;
    std::wstring error;
    EXPECT_FALSE(ParsePortSpec(L"1," + std::wstring(item), ports, error)) << item;
    EXPECT_EQ(error, L"invalid port or port range: " + std::wstring(item));
    EXPECT_EQ(ports, (Ports{{1, 1}}));
  }
}

TEST(AddressSpec, DnsItemsAreFoundAndReplaced) {
  EXPECT_TRUE(SpecHasDns(L"1.1.1.1;$Dns"));
  EXPECT_FALSE(SpecHasDns(L"$dns-1, dns"));
  EXPECT_EQ(SpecReplaceDns(L" 1.1.1.1;$DNS\t2.2.2.2 ", L"9.9.9.9, ::1"),
            L"1.1.1.1, 9.9.9.9, ::1, 2.2.2.2");
  EXPECT_EQ(SpecReplaceDns(L"$dns,1.1.1.1,$dns", L""), L"1.1.1.1");
  EXPECT_EQ(SpecReplaceDns(L"$dns", L""), L"");
  EXPECT_EQ(SpecReplaceDns(L"1.1.1.1 - 2.2.2.2", L""), L"1.1.1.1, -, 2.2.2.2");
}

TEST(AppReference, FormsAreToldApart) {
  EXPECT_TRUE(IsServiceRef(L"Service:x") && IsPackageRef(L"PACKAGE:x") && IsSystemApp(L"system"));
  EXPECT_EQ(ServiceRefName(L"service: BITS \t"), L"BITS");
  EXPECT_EQ(PackageRefName(L"Package:Contoso.App_1"), L"Contoso.App_1");
  EXPECT_FALSE(IsServiceRef(L"service:") || IsPackageRef(L"service:x") || IsSystemApp(L"System "));
  EXPECT_TRUE(IsServiceRef(L"service: "));
  EXPECT_EQ(ServiceRefName(L"service: ") + ServiceRefName(L"package:x") + PackageRefName(L"x"),
            L"");
  EXPECT_EQ(KernelImagePath(), L"C:\\Windows\\System32\\ntoskrnl.exe");
}

}  // namespace
}  // namespace kestrelon

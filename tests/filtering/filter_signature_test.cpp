#include "filtering/filter_signature.h"

#include <gtest/gtest.h>

#include "filtering/filter_keys.h"

namespace kestrelon {
namespace {

constexpr const char* kHead =
    "{C38D57D1-05A7-4C33-904F-7FBCEEE60E82}|{9D4E6A12-3B7F-4C21-8E95-A1C3F0B2D746}";

platform::Filter BareFilter() {
  platform::Filter filter;
  filter.layer = platform::kLayerConnectV4;
  filter.sublayer = SubLayerKey;
  filter.flags = 73;
  filter.weight = std::uint8_t{15};
  return filter;
}

std::string SignatureOf(const platform::Filter& filter) {
  std::string signature;
  AppendFilterSignature(filter, signature);
  return signature;
}

TEST(FilterSignature, HoldsWhatIsSemanticInAFilterAndNothingElse) {
  const std::string head(kHead);
  platform::Filter filter = BareFilter();
  EXPECT_EQ(SignatureOf(filter), head + "|a4097|f73|wt1:15|p-");
  filter.key = ProviderKey;
  filter.name = L"name";
  filter.description = L"description";
  filter.id = 7;
  filter.provider = ProviderKey;
  filter.action = platform::kActionPermit;
  filter.weight = std::uint64_t{0xFFFFFFFFFFFFFFFF};
  filter.conditions = {{platform::kFieldRemotePort, platform::kMatchEqual, std::uint16_t{443}},
                       {platform::kFieldRemotePort, platform::kMatchRange,
                        platform::ValueRange{std::uint16_t{8000}, std::uint16_t{8100}}},
                       {platform::kFieldFlags, platform::kMatchFlagsAllSet, std::uint32_t{1}}};
  EXPECT_EQ(SignatureOf(filter),
            head +
                "|a4098|f73|wt4:18446744073709551615|p{6B2A1F30-7C4E-4D8A-9F13-2E5B8C71A0D4}"
                "|c{C35A604D-D22B-4E1A-91B4-68F674EE674B}m0=t2:443"
                "|c{C35A604D-D22B-4E1A-91B4-68F674EE674B}m5=t258:[t2:8000-t2:8100]"
                "|c{632CE23B-5167-435C-86D7-E903684AA80C}m6=t3:1");
}

TEST(FilterSignature, WritesEachTypeOfValue) {
  const platform::ByteArray16 address = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0,
                                         0,    0,    0,    0,    0, 0, 0, 0xff};
  const std::pair<platform::Value, const char*> cases[] = {
      {std::monostate(), "t0:?"},
      {std::uint8_t{0}, "t1:0"},
      {std::uint16_t{65535}, "t2:65535"},
      {std::uint32_t{4294967295}, "t3:4294967295"},
      {std::uint64_t{0}, "t4:0"},
      {address, "t11:?"},
      {platform::ByteBlob{{0x00, 0x5c, 0xff}}, "t12:005cff"},
      {platform::ByteBlob{}, "t12:"},
      {platform::SidValue{{1, 2}}, "t13:?"},
      {platform::DescriptorValue{{1, 2}}, "t14:?"},
      {platform::Ipv4Mask{0x0A000000, 0xFF000000}, "t256:a000000/ff000000"},
      {platform::Ipv4Mask{0, 0}, "t256:0/0"},
      {platform::Ipv6Mask{address, 64}, "t257:20010db80000000000000000000000ff/64"},
      {platform::ValueRange{std::uint32_t{167772160}, std::uint32_t{184549375}},
       "t258:[t3:167772160-t3:184549375]"},
      {platform::ValueRange{address, std::monostate()}, "t258:[t11:?-t0:?]"},
      {platform::OtherValue{17}, "t17:?"},
      // What the platform holds by a null pointer.
      {platform::OtherValue{4}, "t4:"},
      {platform::OtherValue{256}, "t256:"},
      {platform::OtherValue{257}, "t257:"},
      {platform::OtherValue{258}, "t258:"},
  };
  for (const auto& [value, text] : cases) {
    platform::Filter filter = BareFilter();
    filter.conditions = {{platform::kFieldRemoteAddress, platform::kMatchEqual, value}};
    EXPECT_EQ(SignatureOf(filter),
              SignatureOf(BareFilter()) + "|c{B235AE9A-1D64-49B8-A44C-5FF3D9095045}m0=" + text);
  }
}

}  // namespace
}  // namespace kestrelon

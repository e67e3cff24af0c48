#include "filtering/filter_conditions.h"

#include <utility>

namespace kestrelon {
namespace {

template <typename T>
platform::Condition InRange(const Guid& field, T low, T high) {
  if (low == high) return {field, platform::kMatchEqual, low};
  return {field, platform::kMatchRange, platform::ValueRange{low, high}};
}

}  // namespace

platform::Condition ProtocolIs(std::uint8_t protocol) {
  return {platform::kFieldProtocol, platform::kMatchEqual, protocol};
}

platform::Condition AppIs(platform::Bytes app_id) {
  return {platform::kFieldAppId, platform::kMatchEqual, platform::ByteBlob{std::move(app_id)}};
}

platform::Condition PackageIs(platform::Sid package) {
  return {platform::kFieldPackageId, platform::kMatchEqual, platform::SidValue{std::move(package)}};
}

platform::Condition UserIs(platform::SecurityDescriptor descriptor) {
  return {platform::kFieldUserId, platform::kMatchEqual,
          platform::DescriptorValue{std::move(descriptor)}};
}

platform::Condition IsLoopback() {
  return {platform::kFieldFlags, platform::kMatchFlagsAllSet, platform::kConditionFlagLoopback};
}

platform::Condition RemoteIs(const AddressEntry& address) {
  if (address.family == 4) {
    return InRange(platform::kFieldRemoteAddress, address.low, address.high);
  }
  return {platform::kFieldRemoteAddress, platform::kMatchEqual,
          platform::Ipv6Mask{address.address, static_cast<std::uint8_t>(address.prefix)}};
}

platform::Condition PortIs(const Guid& field, const PortRange& ports) {
  return InRange(field, ports.low, ports.high);
}

bool UserDescriptor(const std::wstring& sid_text, platform::SecurityDescriptor& descriptor) {
  return platform::DescriptorFromText(L"O:LSD:(A;;CC;;;" + sid_text + L")", descriptor) ==
         platform::kSuccess;
}

}  // namespace kestrelon

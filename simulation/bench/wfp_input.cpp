#include "simulation/bench/wfp_input.h"

#include <algorithm>
#include <type_traits>
#include <utility>

namespace simulation {
namespace {

using kestrelon::platform::ByteArray16;
using kestrelon::platform::ByteBlob;
using kestrelon::platform::DescriptorValue;
using kestrelon::platform::Ipv4Mask;
using kestrelon::platform::Ipv6Mask;
using kestrelon::platform::kInvalidSecurityDescriptor;
using kestrelon::platform::kNullDisplayName;
using kestrelon::platform::kNullPointer;
using kestrelon::platform::kSuccess;
using kestrelon::platform::kTypeMismatch;
using kestrelon::platform::OtherValue;
using kestrelon::platform::RangeEnd;
using kestrelon::platform::SidValue;
using kestrelon::platform::ValueRange;

constexpr Code kReservedNotZero = 0x80320029;
constexpr Code kInvalidSid = ERROR_INVALID_SID;

std::wstring TextOf(const wchar_t* text) {
  return text == nullptr ? std::wstring() : text;
}

ByteArray16 ArrayOf(const UINT8 (&bytes)[16]) {
  ByteArray16 array{};
  std::copy(std::begin(bytes), std::end(bytes), array.begin());
  return array;
}

Code BytesOfBlob(const FWP_BYTE_BLOB* blob, Bytes& bytes) {
  if (blob == nullptr || (blob->size > 0 && blob->data == nullptr)) return kNullPointer;
  bytes.assign(blob->data, blob->data + blob->size);
  return kSuccess;
}

Code BytesOfSid(SID* sid, Bytes& bytes) {
  if (sid == nullptr) return kNullPointer;
  if (!IsValidSid(sid)) return kInvalidSid;
  const auto* const begin = reinterpret_cast<const std::uint8_t*>(sid);
  bytes.assign(begin, begin + GetLengthSid(sid));
  return kSuccess;
}

// The values that hold a pointer: refused when it is null, else read by `read`.
template <typename Pointer, typename Read>
Code ReadBehind(const Pointer* pointer, const Read& read) {
  if (pointer == nullptr) return kNullPointer;
  read(*pointer);
  return kSuccess;
}

// The types that weights, operands and the ends of ranges share.
template <typename Native, typename Record>
Code PlainValueOf(const Native& native, Record& record) {
  switch (native.type) {
    case FWP_EMPTY:
      record = std::monostate{};
      return kSuccess;
    case FWP_UINT8:
      record = native.uint8;
      return kSuccess;
    case FWP_UINT16:
      record = native.uint16;
      return kSuccess;
    case FWP_UINT32:
      record = static_cast<std::uint32_t>(native.uint32);
      return kSuccess;
    case FWP_UINT64:
      return ReadBehind(native.uint64,
                        [&](UINT64 value) { record = static_cast<std::uint64_t>(value); });
    case FWP_BYTE_ARRAY16_TYPE:
      return ReadBehind(native.byteArray16, [&](const FWP_BYTE_ARRAY16& array) {
        record = ArrayOf(array.byteArray16);
      });
    default:
      return kTypeMismatch;
  }
}

Code RangeOf(const FWP_RANGE0* native, Value& record) {
  if (native == nullptr) return kNullPointer;
  ValueRange range;
  if (const Code code = PlainValueOf(native->valueLow, range.low)) return code;
  if (const Code code = PlainValueOf(native->valueHigh, range.high)) return code;
  record = std::move(range);
  return kSuccess;
}

template <typename Native>
Code PointedValueOf(const Native& native, Value& record) {
  Bytes bytes;
  switch (native.type) {
    case FWP_BYTE_BLOB_TYPE: {
      const Code code = BytesOfBlob(native.byteBlob, bytes);
      record = ByteBlob{std::move(bytes)};
      return code;
    }
    case FWP_SID: {
      const Code code = BytesOfSid(native.sid, bytes);
      record = SidValue{std::move(bytes)};
      return code;
    }
    case FWP_SECURITY_DESCRIPTOR_TYPE: {
      const Code code = BytesOfBlob(native.sd, bytes);
      record = DescriptorValue{std::move(bytes)};
      return code;
    }
    default:
      record = OtherValue{static_cast<std::uint32_t>(native.type)};
      return kSuccess;
  }
}

Code ValueOf(const FWP_VALUE0& native, Value& record) {
  const Code code = PlainValueOf(native, record);
  return code == kTypeMismatch ? PointedValueOf(native, record) : code;
}

Code ValueOf(const FWP_CONDITION_VALUE0& native, Value& record) {
  switch (native.type) {
    case FWP_V4_ADDR_MASK:
      return ReadBehind(native.v4AddrMask, [&](const FWP_V4_ADDR_AND_MASK& mask) {
        record = Ipv4Mask{mask.addr, mask.mask};
      });
    case FWP_V6_ADDR_MASK:
      return ReadBehind(native.v6AddrMask, [&](const FWP_V6_ADDR_AND_MASK& mask) {
        record = Ipv6Mask{ArrayOf(mask.addr), mask.prefixLength};
      });
    case FWP_RANGE_TYPE:
      return RangeOf(native.rangeValue, record);
    default:
      break;
  }
  const Code code = PlainValueOf(native, record);
  return code == kTypeMismatch ? PointedValueOf(native, record) : code;
}

template <typename Record>
Code DisplayDataOf(const FWPM_DISPLAY_DATA0& native, Record& record) {
  if (native.name == nullptr) return kNullDisplayName;
  record.name = native.name;
  record.description = TextOf(native.description);
  return kSuccess;
}

std::optional<Guid> OptionalGuidOf(const GUID* guid) {
  if (guid == nullptr) return std::nullopt;
  return GuidOf(*guid);
}

Code ConditionsOf(const FWPM_FILTER0& native, std::vector<Condition>& conditions) {
  if (native.numFilterConditions > 0 && native.filterCondition == nullptr) return kNullPointer;
  conditions.resize(native.numFilterConditions);
  for (UINT32 i = 0; i < native.numFilterConditions; ++i) {
    const FWPM_FILTER_CONDITION0& condition = native.filterCondition[i];
    conditions[i].field = GuidOf(condition.fieldKey);
    conditions[i].match = static_cast<std::uint32_t>(condition.matchType);
    if (const Code code = ValueOf(condition.conditionValue, conditions[i].value)) return code;
  }
  return kSuccess;
}

}  // namespace

Guid GuidOf(const GUID& guid) {
  Guid record;
  record.data1 = static_cast<std::uint32_t>(guid.Data1);
  record.data2 = guid.Data2;
  record.data3 = guid.Data3;
  std::copy(std::begin(guid.Data4), std::end(guid.Data4), record.data4.begin());
  return record;
}

Code RecordOf(const FWPM_PROVIDER0* native, Provider& record) {
  if (native == nullptr) return kNullPointer;
  record.key = GuidOf(native->providerKey);
  record.flags = native->flags;
  record.service_name = TextOf(native->serviceName);
  return DisplayDataOf(native->displayData, record);
}

Code RecordOf(const FWPM_SUBLAYER0* native, Sublayer& record) {
  if (native == nullptr) return kNullPointer;
  record.key = GuidOf(native->subLayerKey);
  record.flags = native->flags;
  record.provider = OptionalGuidOf(native->providerKey);
  record.weight = native->weight;
  return DisplayDataOf(native->displayData, record);
}

Code RecordOf(const FWPM_FILTER0* native, Filter& record) {
  if (native == nullptr) return kNullPointer;
  if (native->reserved != nullptr) return kReservedNotZero;
  record.key = GuidOf(native->filterKey);
  record.flags = native->flags;
  record.provider = OptionalGuidOf(native->providerKey);
  record.layer = GuidOf(native->layerKey);
  record.sublayer = GuidOf(native->subLayerKey);
  record.action = native->action.type;
  if (const Code code = DisplayDataOf(native->displayData, record)) return code;
  if (const Code code = ValueOf(native->weight, record.weight)) return code;
  return ConditionsOf(*native, record.conditions);
}

Code BytesOfDescriptor(PSECURITY_DESCRIPTOR descriptor, Bytes& bytes) {
  bytes.clear();
  if (descriptor == nullptr) return kSuccess;
  if (!IsValidSecurityDescriptor(descriptor)) return kInvalidSecurityDescriptor;
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  if (!GetSecurityDescriptorControl(descriptor, &control, &revision)) return GetLastError();
  if ((control & SE_SELF_RELATIVE) != 0) {
    const auto* const begin = static_cast<const std::uint8_t*>(descriptor);
    bytes.assign(begin, begin + GetSecurityDescriptorLength(descriptor));
    return kSuccess;
  }
  DWORD size = 0;
  MakeSelfRelativeSD(descriptor, nullptr, &size);
  bytes.resize(size);
  return MakeSelfRelativeSD(descriptor, bytes.data(), &size) ? kSuccess : GetLastError();
}

Code DescriptorOfDacl(const ACL* dacl, Bytes& bytes) {
  SECURITY_DESCRIPTOR descriptor;
  if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) ||
      !SetSecurityDescriptorDacl(&descriptor, TRUE, const_cast<ACL*>(dacl), FALSE)) {
    return GetLastError();
  }
  return BytesOfDescriptor(&descriptor, bytes);
}

}  // namespace simulation

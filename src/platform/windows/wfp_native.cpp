#include "platform/windows/wfp_native.h"

#include <algorithm>
#include <new>
#include <type_traits>

namespace kestrelon::platform {
namespace {

// What the values of a condition and of a range take at most, alignment included.
constexpr std::size_t kMemoryOfCondition =
    sizeof(FWPM_FILTER_CONDITION0) + sizeof(FWP_RANGE0) + 2 * sizeof(FWP_BYTE_ARRAY16) + 16;
constexpr std::size_t kMemoryOfFilter = 64;

// Structures here are plain data: nothing needs to be destroyed before its memory goes.
template <typename T>
T* Make(std::pmr::memory_resource& memory, const T& value) {
  static_assert(std::is_trivially_destructible_v<T>);
  return new (memory.allocate(sizeof(T), alignof(T))) T(value);
}

// The interface takes all of its input as pointers to changeable data but only reads it.
UINT8* InputBytes(const Bytes& bytes) {
  return const_cast<UINT8*>(bytes.data());
}

FWP_BYTE_ARRAY16 NativeArray(const ByteArray16& array) {
  FWP_BYTE_ARRAY16 native{};
  std::copy(array.begin(), array.end(), native.byteArray16);
  return native;
}

// A SID shorter than its own count of parts says would be read beyond its end; the null pointer is
// refused by the engine.
SID* NativeSid(const Bytes& sid) {
  constexpr std::size_t kHead = 8;
  if (sid.size() < kHead || sid.size() < kHead + 4 * std::size_t{sid[1]}) return nullptr;
  return reinterpret_cast<SID*>(InputBytes(sid));
}

// Puts a value into a FWP_VALUE0 or FWP_CONDITION_VALUE0, whose first members are the same. `out`
// comes zeroed, so that the pointer of a value that can't be written is null.
template <typename Native>
struct ValueWriter {
  std::pmr::memory_resource& memory;
  Native& out;

  static constexpr bool kIsCondition = std::is_same_v<Native, FWP_CONDITION_VALUE0>;

  void operator()(std::monostate) { out.type = FWP_EMPTY; }
  void operator()(std::uint8_t value) {
    out.type = FWP_UINT8;
    out.uint8 = value;
  }
  void operator()(std::uint16_t value) {
    out.type = FWP_UINT16;
    out.uint16 = value;
  }
  void operator()(std::uint32_t value) {
    out.type = FWP_UINT32;
    out.uint32 = value;
  }
  void operator()(std::uint64_t value) {
    out.type = FWP_UINT64;
    out.uint64 = Make<UINT64>(memory, value);
  }
  void operator()(const ByteArray16& value) {
    out.type = FWP_BYTE_ARRAY16_TYPE;
    out.byteArray16 = Make(memory, NativeArray(value));
  }
  void operator()(const ByteBlob& value) {
    out.type = FWP_BYTE_BLOB_TYPE;
    out.byteBlob = MakeBlob(value.bytes);
  }
  void operator()(const SidValue& value) {
    out.type = FWP_SID;
    out.sid = NativeSid(value.sid);
  }
  void operator()(const DescriptorValue& value) {
    out.type = FWP_SECURITY_DESCRIPTOR_TYPE;
    out.sd = MakeBlob(value.descriptor);
  }
  void operator()(const Ipv4Mask& value) {
    out.type = FWP_V4_ADDR_MASK;
    if constexpr (kIsCondition) {
      out.v4AddrMask = Make(memory, FWP_V4_ADDR_AND_MASK{value.address, value.mask});
    }
  }
  void operator()(const Ipv6Mask& value) {
    out.type = FWP_V6_ADDR_MASK;
    if constexpr (kIsCondition) {
      FWP_V6_ADDR_AND_MASK mask{};
      std::copy(value.address.begin(), value.address.end(), mask.addr);
      mask.prefixLength = value.prefix;
      out.v6AddrMask = Make(memory, mask);
    }
  }
  void operator()(const ValueRange& value) {
    out.type = FWP_RANGE_TYPE;
    if constexpr (kIsCondition) {
      FWP_RANGE0 range{};
      std::visit(ValueWriter<FWP_VALUE0>{memory, range.valueLow}, value.low);
      std::visit(ValueWriter<FWP_VALUE0>{memory, range.valueHigh}, value.high);
      out.rangeValue = Make(memory, range);
    }
  }
  void operator()(const OtherValue& value) { out.type = static_cast<FWP_DATA_TYPE>(value.type); }

  FWP_BYTE_BLOB* MakeBlob(const Bytes& bytes) {
    return Make(memory, FWP_BYTE_BLOB{static_cast<UINT32>(bytes.size()), InputBytes(bytes)});
  }
};

FWPM_FILTER_CONDITION0* MakeConditions(std::pmr::memory_resource& memory,
                                       const std::vector<Condition>& conditions) {
  if (conditions.empty()) return nullptr;
  auto* const natives = static_cast<FWPM_FILTER_CONDITION0*>(memory.allocate(
      conditions.size() * sizeof(FWPM_FILTER_CONDITION0), alignof(FWPM_FILTER_CONDITION0)));
  FWPM_FILTER_CONDITION0* next = natives;
  for (const Condition& condition : conditions) {
    auto* const native = new (next++) FWPM_FILTER_CONDITION0{};
    native->fieldKey = NativeGuid(condition.field);
    native->matchType = static_cast<FWP_MATCH_TYPE>(condition.match);
    std::visit(ValueWriter<FWP_CONDITION_VALUE0>{memory, native->conditionValue}, condition.value);
  }
  return natives;
}

// --- What the engine gave, copied. A null pointer becomes the type without a value.

Bytes BytesOfBlob(const FWP_BYTE_BLOB* blob) {
  if (blob == nullptr || blob->data == nullptr) return {};
  return {blob->data, blob->data + blob->size};
}

Bytes BytesOfSid(SID* sid) {
  if (sid == nullptr) return {};
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(sid);
  return {bytes, bytes + GetLengthSid(sid)};
}

ByteArray16 ArrayOf(const UINT8* bytes) {
  ByteArray16 array{};
  std::copy_n(bytes, array.size(), array.begin());
  return array;
}

// The values that both kinds of value can hold.
template <typename Native>
Value SimpleValue(const Native& native) {
  const OtherValue other{static_cast<std::uint32_t>(native.type)};
  switch (native.type) {
    case FWP_EMPTY:
      return std::monostate();
    case FWP_UINT8:
      return native.uint8;
    case FWP_UINT16:
      return native.uint16;
    case FWP_UINT32:
      return std::uint32_t{native.uint32};
    case FWP_UINT64:
      if (native.uint64 == nullptr) return other;
      return std::uint64_t{*native.uint64};
    case FWP_BYTE_ARRAY16_TYPE:
      if (native.byteArray16 == nullptr) return other;
      return ArrayOf(native.byteArray16->byteArray16);
    case FWP_BYTE_BLOB_TYPE:
      return ByteBlob{BytesOfBlob(native.byteBlob)};
    case FWP_SID:
      return SidValue{BytesOfSid(native.sid)};
    case FWP_SECURITY_DESCRIPTOR_TYPE:
      return DescriptorValue{BytesOfBlob(native.sd)};
    default:
      return other;
  }
}

// An end of a range; false for a type that a RangeEnd has no room for.
bool ReadRangeEnd(const FWP_VALUE0& native, RangeEnd& end) {
  return std::visit(
      [&end](const auto& value) {
        if constexpr (std::is_assignable_v<RangeEnd&, decltype(value)>) {
          end = value;
          return true;
        } else {
          return false;
        }
      },
      SimpleValue(native));
}

Value ConditionValue(const FWP_CONDITION_VALUE0& native) {
  const OtherValue other{static_cast<std::uint32_t>(native.type)};
  switch (static_cast<std::uint32_t>(native.type)) {
    case kTypeIpv4Mask:
      if (native.v4AddrMask == nullptr) return other;
      return Ipv4Mask{native.v4AddrMask->addr, native.v4AddrMask->mask};
    case kTypeIpv6Mask:
      if (native.v6AddrMask == nullptr) return other;
      return Ipv6Mask{ArrayOf(native.v6AddrMask->addr), native.v6AddrMask->prefixLength};
    case kTypeRange: {
      ValueRange range;
      if (native.rangeValue == nullptr || !ReadRangeEnd(native.rangeValue->valueLow, range.low) ||
          !ReadRangeEnd(native.rangeValue->valueHigh, range.high)) {
        return other;
      }
      return range;
    }
    default:
      return SimpleValue(native);
  }
}

std::wstring TextOrEmpty(const wchar_t* text) {
  return text != nullptr ? text : L"";
}

wchar_t* TextOrNull(const std::wstring& text) {
  return text.empty() ? nullptr : const_cast<wchar_t*>(text.c_str());
}

}  // namespace

GUID NativeGuid(const Guid& guid) {
  GUID native{};
  native.Data1 = guid.data1;
  native.Data2 = guid.data2;
  native.Data3 = guid.data3;
  std::copy(guid.data4.begin(), guid.data4.end(), native.Data4);
  return native;
}

Guid GuidFromNative(const GUID& guid) {
  Guid result;
  result.data1 = static_cast<std::uint32_t>(guid.Data1);
  result.data2 = guid.Data2;
  result.data3 = guid.Data3;
  std::copy_n(guid.Data4, result.data4.size(), result.data4.begin());
  return result;
}

FWPM_DISPLAY_DATA0 NativeDisplayData(const std::wstring& name, const std::wstring& description) {
  return {TextOrNull(name), TextOrNull(description)};
}

NativeFilter::NativeFilter(const Filter& filter)
    : memory_(kMemoryOfFilter + filter.conditions.size() * kMemoryOfCondition) {
  native_.filterKey = NativeGuid(filter.key);
  native_.displayData = NativeDisplayData(filter.name, filter.description);
  native_.flags = filter.flags;
  if (filter.provider) {
    provider_ = NativeGuid(*filter.provider);
    native_.providerKey = &provider_;
  }
  native_.layerKey = NativeGuid(filter.layer);
  native_.subLayerKey = NativeGuid(filter.sublayer);
  std::visit(ValueWriter<FWP_VALUE0>{memory_, native_.weight}, filter.weight);
  native_.numFilterConditions = static_cast<UINT32>(filter.conditions.size());
  native_.filterCondition = MakeConditions(memory_, filter.conditions);
  native_.action.type = filter.action;
}

Filter FilterFromNative(const FWPM_FILTER0& native) {
  Filter filter;
  filter.key = GuidFromNative(native.filterKey);
  filter.name = TextOrEmpty(native.displayData.name);
  filter.description = TextOrEmpty(native.displayData.description);
  filter.flags = native.flags;
  if (native.providerKey != nullptr) filter.provider = GuidFromNative(*native.providerKey);
  filter.layer = GuidFromNative(native.layerKey);
  filter.sublayer = GuidFromNative(native.subLayerKey);
  filter.weight = SimpleValue(native.weight);
  filter.conditions.reserve(native.numFilterConditions);
  for (UINT32 i = 0; i < native.numFilterConditions; ++i) {
    const FWPM_FILTER_CONDITION0& condition = native.filterCondition[i];
    filter.conditions.push_back({GuidFromNative(condition.fieldKey),
                                 static_cast<std::uint32_t>(condition.matchType),
                                 ConditionValue(condition.conditionValue)});
  }
  filter.action = native.action.type;
  filter.id = native.filterId;
  return filter;
}

Sublayer SublayerFromNative(const FWPM_SUBLAYER0& native) {
  Sublayer sublayer;
  sublayer.key = GuidFromNative(native.subLayerKey);
  sublayer.name = TextOrEmpty(native.displayData.name);
  sublayer.description = TextOrEmpty(native.displayData.description);
  sublayer.flags = native.flags;
  if (native.providerKey != nullptr) sublayer.provider = GuidFromNative(*native.providerKey);
  sublayer.weight = native.weight;
  return sublayer;
}

}  // namespace kestrelon::platform

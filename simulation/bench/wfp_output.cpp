#include "simulation/bench/wfp_output.h"

#include <algorithm>
#include <string>
#include <type_traits>
#include <variant>

namespace simulation {
namespace {

using kestrelon::platform::ByteArray16;
using kestrelon::platform::ByteBlob;
using kestrelon::platform::DescriptorValue;
using kestrelon::platform::Ipv4Mask;
using kestrelon::platform::Ipv6Mask;
using kestrelon::platform::OtherValue;
using kestrelon::platform::RangeEnd;
using kestrelon::platform::SidValue;
using kestrelon::platform::ValueRange;

wchar_t* NativeText(OutputBlock& block, const std::wstring& text) {
  wchar_t* const native = block.New<wchar_t>(text.size() + 1);
  std::copy(text.begin(), text.end(), native);
  return native;
}

UINT8* NativeBytes(OutputBlock& block, const Bytes& bytes) {
  UINT8* const native = block.New<UINT8>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), native);
  return native;
}

FWP_BYTE_BLOB* NativeBlob(OutputBlock& block, const Bytes& bytes) {
  FWP_BYTE_BLOB* const blob = block.New<FWP_BYTE_BLOB>();
  blob->size = static_cast<UINT32>(bytes.size());
  blob->data = NativeBytes(block, bytes);
  return blob;
}

template <typename Native>
Native* NativeValue(OutputBlock& block, const Native& value) {
  Native* const native = block.New<Native>();
  *native = value;
  return native;
}

// Fills a FWP_VALUE0 or a FWP_CONDITION_VALUE0; masks and ranges stand in the latter only.
template <typename Native>
struct ValueFiller {
  OutputBlock& block;
  Native& native;

  static constexpr bool kIsCondition = std::is_same_v<Native, FWP_CONDITION_VALUE0>;

  void operator()(std::monostate) const { native.type = FWP_EMPTY; }
  void operator()(std::uint8_t value) const {
    native.type = FWP_UINT8;
    native.uint8 = value;
  }
  void operator()(std::uint16_t value) const {
    native.type = FWP_UINT16;
    native.uint16 = value;
  }
  void operator()(std::uint32_t value) const {
    native.type = FWP_UINT32;
    native.uint32 = value;
  }
  void operator()(std::uint64_t value) const {
    native.type = FWP_UINT64;
    native.uint64 = NativeValue<UINT64>(block, value);
  }
  void operator()(const ByteArray16& value) const {
    native.type = FWP_BYTE_ARRAY16_TYPE;
    native.byteArray16 = block.New<FWP_BYTE_ARRAY16>();
    std::copy(value.begin(), value.end(), native.byteArray16->byteArray16);
  }
  void operator()(const ByteBlob& value) const {
    native.type = FWP_BYTE_BLOB_TYPE;
    native.byteBlob = NativeBlob(block, value.bytes);
  }
  void operator()(const SidValue& value) const {
    native.type = FWP_SID;
    native.sid = reinterpret_cast<SID*>(NativeBytes(block, value.sid));
  }
  void operator()(const DescriptorValue& value) const {
    native.type = FWP_SECURITY_DESCRIPTOR_TYPE;
    native.sd = NativeBlob(block, value.descriptor);
  }
  void operator()(const Ipv4Mask& value) const {
    native.type = FWP_V4_ADDR_MASK;
    if constexpr (kIsCondition) {
      native.v4AddrMask = NativeValue(block, FWP_V4_ADDR_AND_MASK{value.address, value.mask});
    }
  }
  void operator()(const Ipv6Mask& value) const {
    native.type = FWP_V6_ADDR_MASK;
    if constexpr (kIsCondition) {
      native.v6AddrMask = block.New<FWP_V6_ADDR_AND_MASK>();
      std::copy(value.address.begin(), value.address.end(), native.v6AddrMask->addr);
      native.v6AddrMask->prefixLength = value.prefix;
    }
  }
  void operator()(const ValueRange& value) const {
    native.type = FWP_RANGE_TYPE;
    if constexpr (kIsCondition) {
      native.rangeValue = block.New<FWP_RANGE0>();
      std::visit(ValueFiller<FWP_VALUE0>{block, native.rangeValue->valueLow}, value.low);
      std::visit(ValueFiller<FWP_VALUE0>{block, native.rangeValue->valueHigh}, value.high);
    }
  }
  void operator()(const OtherValue& value) const {
    native.type = static_cast<FWP_DATA_TYPE>(value.type);
  }
};

template <typename Native, typename Record>
void FillValue(OutputBlock& block, const Record& record, Native& native) {
  std::visit(ValueFiller<Native>{block, native}, record);
}

template <typename Record>
FWPM_DISPLAY_DATA0 DisplayDataOf(OutputBlock& block, const Record& record) {
  FWPM_DISPLAY_DATA0 data{};
  data.name = NativeText(block, record.name);
  if (!record.description.empty()) data.description = NativeText(block, record.description);
  return data;
}

GUID* OptionalNativeOf(OutputBlock& block, const std::optional<Guid>& guid) {
  return guid ? NativeValue(block, NativeOf(*guid)) : nullptr;
}

}  // namespace

GUID NativeOf(const Guid& guid) {
  GUID native{};
  native.Data1 = guid.data1;
  native.Data2 = guid.data2;
  native.Data3 = guid.data3;
  std::copy(guid.data4.begin(), guid.data4.end(), native.Data4);
  return native;
}

void Fill(OutputBlock& block, const Provider& record, FWPM_PROVIDER0& native) {
  native.providerKey = NativeOf(record.key);
  native.displayData = DisplayDataOf(block, record);
  native.flags = record.flags;
  if (!record.service_name.empty()) native.serviceName = NativeText(block, record.service_name);
}

void Fill(OutputBlock& block, const Sublayer& record, FWPM_SUBLAYER0& native) {
  native.subLayerKey = NativeOf(record.key);
  native.displayData = DisplayDataOf(block, record);
  native.flags = static_cast<decltype(native.flags)>(record.flags);
  native.providerKey = OptionalNativeOf(block, record.provider);
  native.weight = record.weight;
}

void Fill(OutputBlock& block, const Filter& record, FWPM_FILTER0& native) {
  native.filterKey = NativeOf(record.key);
  native.displayData = DisplayDataOf(block, record);
  native.flags = record.flags;
  native.providerKey = OptionalNativeOf(block, record.provider);
  native.layerKey = NativeOf(record.layer);
  native.subLayerKey = NativeOf(record.sublayer);
  FillValue(block, record.weight, native.weight);
  native.numFilterConditions = static_cast<UINT32>(record.conditions.size());
  if (!record.conditions.empty()) {
    native.filterCondition = block.New<FWPM_FILTER_CONDITION0>(record.conditions.size());
  }
  for (std::size_t i = 0; i < record.conditions.size(); ++i) {
    FWPM_FILTER_CONDITION0& condition = native.filterCondition[i];
    condition.fieldKey = NativeOf(record.conditions[i].field);
    condition.matchType = static_cast<FWP_MATCH_TYPE>(record.conditions[i].match);
    FillValue(block, record.conditions[i].value, condition.conditionValue);
  }
  native.action.type = record.action;
  native.filterId = record.id;
}

FWPM_FILTER0** AnswerOf(const std::vector<Filter>& records) {
  OutputBlock block;
  FWPM_FILTER0** const entries = block.New<FWPM_FILTER0*>(records.size());
  FWPM_FILTER0* const filters = block.New<FWPM_FILTER0>(records.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    entries[i] = &filters[i];
    Fill(block, records[i], filters[i]);
  }
  return static_cast<FWPM_FILTER0**>(block.Release());
}

FWP_BYTE_BLOB* AnswerOf(const Bytes& bytes) {
  OutputBlock block;
  NativeBlob(block, bytes);
  return static_cast<FWP_BYTE_BLOB*>(block.Release());
}

FWP_VALUE0* AnswerOf(std::uint32_t number) {
  OutputBlock block;
  FWP_VALUE0* const value = block.New<FWP_VALUE0>();
  value->type = FWP_UINT32;
  value->uint32 = number;
  return static_cast<FWP_VALUE0*>(block.Release());
}

FWPM_LAYER0* AnswerOfLayer(const GUID& key, std::uint16_t id) {
  OutputBlock block;
  FWPM_LAYER0* const layer = block.New<FWPM_LAYER0>();
  layer->layerKey = key;
  layer->layerId = id;
  return static_cast<FWPM_LAYER0*>(block.Release());
}

}  // namespace simulation

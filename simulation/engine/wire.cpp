#include "simulation/engine/wire.h"

#include <algorithm>
#include <type_traits>
#include <utility>
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

// Stands before each value: the index of its alternative in Value. RangeEnd's alternatives are the
// first ones of Value in the same order, so both share the numbers.
enum Alternative : std::uint8_t {
  kNothing,
  kUint8,
  kUint16,
  kUint32,
  kUint64,
  kArray16,
  kBlob,
  kSid,
  kDescriptor,
  kIpv4Mask,
  kIpv6Mask,
  kRange,
  kOther,
};
static_assert(std::variant_size_v<Value> == kOther + 1);
static_assert(std::variant_size_v<RangeEnd> == kArray16 + 1);
static_assert(std::is_same_v<std::variant_alternative_t<kArray16, Value>, ByteArray16>);
static_assert(std::is_same_v<std::variant_alternative_t<kArray16, RangeEnd>, ByteArray16>);

struct ContentWriter {
  WireWriter& writer;

  void operator()(std::monostate) const {}
  void operator()(std::uint8_t value) const { writer.U8(value); }
  void operator()(std::uint16_t value) const { writer.U16(value); }
  void operator()(std::uint32_t value) const { writer.U32(value); }
  void operator()(std::uint64_t value) const { writer.U64(value); }
  void operator()(const ByteArray16& value) const { writer.Raw(value.data(), value.size()); }
  void operator()(const ByteBlob& value) const { writer.Blob(value.bytes); }
  void operator()(const SidValue& value) const { writer.Blob(value.sid); }
  void operator()(const DescriptorValue& value) const { writer.Blob(value.descriptor); }
  void operator()(const Ipv4Mask& value) const {
    writer.U32(value.address);
    writer.U32(value.mask);
  }
  void operator()(const Ipv6Mask& value) const {
    (*this)(value.address);
    writer.U8(value.prefix);
  }
  void operator()(const ValueRange& value) const {
    PutVariant(value.low);
    PutVariant(value.high);
  }
  void operator()(const OtherValue& value) const { writer.U32(value.type); }

  template <typename Variant>
  void PutVariant(const Variant& value) const {
    writer.U8(static_cast<std::uint8_t>(value.index()));
    std::visit(*this, value);
  }
};

ByteArray16 TakeArray16(WireReader& reader) {
  ByteArray16 array{};
  reader.Raw(array.data(), array.size());
  return array;
}

// The alternatives that a Value and a RangeEnd have in common.
template <typename Variant>
Variant TakePlain(WireReader& reader, std::uint8_t alternative) {
  switch (alternative) {
    case kNothing:
      return std::monostate{};
    case kUint8:
      return reader.U8();
    case kUint16:
      return reader.U16();
    case kUint32:
      return reader.U32();
    case kUint64:
      return reader.U64();
    case kArray16:
      return TakeArray16(reader);
    default:
      reader.Fail();
      return std::monostate{};
  }
}

RangeEnd TakeRangeEnd(WireReader& reader) {
  return TakePlain<RangeEnd>(reader, reader.U8());
}

// Wide units hold a whole character on some platforms and half a surrogate pair on others.
constexpr bool kWideUnitsAreUtf16 = sizeof(wchar_t) == 2;

bool IsHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}
bool IsLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

}  // namespace

void WireWriter::Integer(std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void WireWriter::Blob(const Bytes& bytes) {
  U32(static_cast<std::uint32_t>(bytes.size()));
  Raw(bytes.data(), bytes.size());
}

void WireWriter::Text(std::wstring_view text) {
  const auto needs_pair = [](wchar_t c) {
    const auto code = static_cast<std::uint32_t>(c);
    return code > 0xFFFF;
  };
  const auto pairs = std::count_if(text.begin(), text.end(), needs_pair);
  U32(static_cast<std::uint32_t>(text.size()) + static_cast<std::uint32_t>(pairs));
  for (const wchar_t c : text) {
    const auto code = static_cast<std::uint32_t>(c);
    if (!needs_pair(c)) {
      U16(static_cast<std::uint16_t>(code));
    } else {
      U16(static_cast<std::uint16_t>(0xD800 + ((code - 0x10000) >> 10)));
      U16(static_cast<std::uint16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
    }
  }
}

void WireWriter::Key(const Guid& guid) {
  U32(guid.data1);
  U16(guid.data2);
  U16(guid.data3);
  Raw(guid.data4.data(), guid.data4.size());
}

void WireWriter::OptionalKey(const std::optional<Guid>& guid) {
  U8(guid ? 1 : 0);
  if (guid) Key(*guid);
}

bool WireReader::Need(std::size_t bytes) {
  if (left_ < bytes) Fail();
  return ok_;
}

void WireReader::Fail() {
  ok_ = false;
  left_ = 0;
}

std::uint64_t WireReader::Integer(std::size_t bytes) {
  if (!Need(bytes)) return 0;
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < bytes; ++i) value |= static_cast<std::uint64_t>(at_[i]) << (8 * i);
  at_ += bytes;
  left_ -= bytes;
  return value;
}

void WireReader::Raw(std::uint8_t* out, std::size_t size) {
  if (!Need(size)) return;
  std::copy(at_, at_ + size, out);
  at_ += size;
  left_ -= size;
}

std::size_t WireReader::Count(std::size_t smallest) {
  const std::size_t count = U32();
  if (count > left_ / smallest) Fail();
  return ok_ ? count : 0;
}

Bytes WireReader::Blob() {
  Bytes bytes(Count(1));
  Raw(bytes.data(), bytes.size());
  return bytes;
}

std::wstring WireReader::Text() {
  const std::size_t units = Count(2);
  std::wstring text;
  text.reserve(units);
  for (std::size_t i = 0; i < units; ++i) {
    const std::uint32_t unit = U16();
    if constexpr (!kWideUnitsAreUtf16) {
      if (IsLowSurrogate(unit) && !text.empty() &&
          IsHighSurrogate(static_cast<std::uint32_t>(text.back()))) {
        const std::uint32_t high = static_cast<std::uint32_t>(text.back());
        text.back() = static_cast<wchar_t>(0x10000 + ((high - 0xD800) << 10) + (unit - 0xDC00));
        continue;
      }
    }
    text += static_cast<wchar_t>(unit);
  }
  return text;
}

Guid WireReader::Key() {
  Guid guid;
  guid.data1 = U32();
  guid.data2 = U16();
  guid.data3 = U16();
  Raw(guid.data4.data(), guid.data4.size());
  return guid;
}

std::optional<Guid> WireReader::OptionalKey() {
  const std::uint8_t present = U8();
  if (present > 1) Fail();
  if (!ok_ || present == 0) return std::nullopt;
  return Key();
}

void Put(WireWriter& writer, const Value& value) {
  ContentWriter{writer}.PutVariant(value);
}

Value TakeValue(WireReader& reader) {
  const std::uint8_t alternative = reader.U8();
  switch (alternative) {
    case kBlob:
      return ByteBlob{reader.Blob()};
    case kSid:
      return SidValue{reader.Blob()};
    case kDescriptor:
      return DescriptorValue{reader.Blob()};
    case kIpv4Mask: {
      const std::uint32_t address = reader.U32();
      return Ipv4Mask{address, reader.U32()};
    }
    case kIpv6Mask: {
      const ByteArray16 address = TakeArray16(reader);
      return Ipv6Mask{address, reader.U8()};
    }
    case kRange: {
      RangeEnd low = TakeRangeEnd(reader);
      return ValueRange{std::move(low), TakeRangeEnd(reader)};
    }
    case kOther:
      return OtherValue{reader.U32()};
    default:
      return TakePlain<Value>(reader, alternative);
  }
}

void Put(WireWriter& writer, const Filter& filter) {
  writer.Key(filter.key);
  writer.Text(filter.name);
  writer.Text(filter.description);
  writer.U32(filter.flags);
  writer.OptionalKey(filter.provider);
  writer.Key(filter.layer);
  writer.Key(filter.sublayer);
  Put(writer, filter.weight);
  writer.U32(static_cast<std::uint32_t>(filter.conditions.size()));
  for (const Condition& condition : filter.conditions) {
    writer.Key(condition.field);
    writer.U32(condition.match);
    Put(writer, condition.value);
  }
  writer.U32(filter.action);
  writer.U64(filter.id);
}

Filter TakeFilter(WireReader& reader) {
  Filter filter;
  filter.key = reader.Key();
  filter.name = reader.Text();
  filter.description = reader.Text();
  filter.flags = reader.U32();
  filter.provider = reader.OptionalKey();
  filter.layer = reader.Key();
  filter.sublayer = reader.Key();
  filter.weight = TakeValue(reader);
  const std::size_t conditions = reader.Count(kSmallestCondition);
  filter.conditions.reserve(conditions);
  for (std::size_t i = 0; i < conditions && reader.ok(); ++i) {
    Condition& condition = filter.conditions.emplace_back();
    condition.field = reader.Key();
    condition.match = reader.U32();
    condition.value = TakeValue(reader);
  }
  filter.action = reader.U32();
  filter.id = reader.U64();
  return filter;
}

void Put(WireWriter& writer, const Provider& provider) {
  writer.Key(provider.key);
  writer.Text(provider.name);
  writer.Text(provider.description);
  writer.U32(provider.flags);
  writer.Text(provider.service_name);
}

Provider TakeProvider(WireReader& reader) {
  Provider provider;
  provider.key = reader.Key();
  provider.name = reader.Text();
  provider.description = reader.Text();
  provider.flags = reader.U32();
  provider.service_name = reader.Text();
  return provider;
}

void Put(WireWriter& writer, const Sublayer& sublayer) {
  writer.Key(sublayer.key);
  writer.Text(sublayer.name);
  writer.Text(sublayer.description);
  writer.U32(sublayer.flags);
  writer.OptionalKey(sublayer.provider);
  writer.U16(sublayer.weight);
}

Sublayer TakeSublayer(WireReader& reader) {
  Sublayer sublayer;
  sublayer.key = reader.Key();
  sublayer.name = reader.Text();
  sublayer.description = reader.Text();
  sublayer.flags = reader.U32();
  sublayer.provider = reader.OptionalKey();
  sublayer.weight = reader.U16();
  return sublayer;
}

}  // namespace simulation

#include "simulation/engine/condition_match.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>
#include <variant>

namespace simulation {
namespace {

using platform::Condition;
using platform::Value;

constexpr WideNumber kLowest{};
constexpr WideNumber kHighest{std::numeric_limits<std::uint64_t>::max(),
                              std::numeric_limits<std::uint64_t>::max()};

WideNumber WideOf(const platform::ByteArray16& bytes) {
  WideNumber number;
  for (std::size_t i = 0; i < 8; ++i) number.high = number.high << 8 | bytes[i];
  for (std::size_t i = 8; i < 16; ++i) number.low = number.low << 8 | bytes[i];
  return number;
}

WideNumber WideOf(std::uint64_t value) {
  return {0, value};
}

// A plain number or array; anything else is zero.
template <typename Variant>
WideNumber NumberOf(const Variant& value) {
  if (const auto* v = std::get_if<std::uint8_t>(&value)) return WideOf(*v);
  if (const auto* v = std::get_if<std::uint16_t>(&value)) return WideOf(*v);
  if (const auto* v = std::get_if<std::uint32_t>(&value)) return WideOf(*v);
  if (const auto* v = std::get_if<std::uint64_t>(&value)) return WideOf(*v);
  if (const auto* v = std::get_if<platform::ByteArray16>(&value)) return WideOf(*v);
  return {};
}

void SetPrefixInterval(const platform::Ipv6Mask& mask, CompiledCondition& compiled) {
  WideNumber bits = kHighest;  // of the prefix
  if (mask.prefix == 0) {
    bits = kLowest;
  } else if (mask.prefix <= 64) {
    bits = {~std::uint64_t{0} << (64 - mask.prefix), 0};
  } else if (mask.prefix < 128) {
    bits.low = ~std::uint64_t{0} << (128 - mask.prefix);
  }
  const WideNumber address = WideOf(mask.address);
  compiled.first = {address.high & bits.high, address.low & bits.low};
  compiled.last = {address.high | ~bits.high, address.low | ~bits.low};
}

// The interval of numbers that the operand means when compared for equality.
void SetInterval(const Value& value, CompiledCondition& compiled) {
  if (const auto* range = std::get_if<platform::ValueRange>(&value)) {
    compiled.first = NumberOf(range->low);
    compiled.last = NumberOf(range->high);
  } else if (const auto* v4 = std::get_if<platform::Ipv4Mask>(&value)) {
    compiled.first = WideOf(v4->address & v4->mask);
    compiled.last = WideOf(v4->address | ~v4->mask);
  } else if (const auto* v6 = std::get_if<platform::Ipv6Mask>(&value)) {
    SetPrefixInterval(*v6, compiled);
  } else {
    compiled.first = compiled.last = NumberOf(value);
  }
}

// Turns the orders into intervals: less is "not from here up", greater "not up to here".
void ApplyOrder(std::uint32_t match, CompiledCondition& compiled) {
  switch (match) {
    case platform::kMatchGreater:
      compiled.negated = true;
      compiled.first = kLowest;
      break;
    case platform::kMatchLess:
      compiled.negated = true;
      compiled.last = kHighest;
      break;
    case platform::kMatchGreaterOrEqual:
      compiled.last = kHighest;
      break;
    case platform::kMatchLessOrEqual:
      compiled.first = kLowest;
      break;
    case platform::kMatchNotEqual:
      compiled.negated = true;
      break;
    default:
      break;
  }
}

CompiledCondition Compile(const Condition& condition, const Field& field) {
  CompiledCondition compiled;
  compiled.field = field.id;
  compiled.match = condition.match;
  const Value& value = condition.value;
  if (std::holds_alternative<std::monostate>(value)) {
    compiled.test = CompiledCondition::Test::kIsEmpty;
  } else if (const auto* blob = std::get_if<platform::ByteBlob>(&value)) {
    compiled.test = CompiledCondition::Test::kBytes;
    compiled.bytes = blob->bytes;
  } else if (const auto* sid = std::get_if<platform::SidValue>(&value)) {
    compiled.test = CompiledCondition::Test::kBytes;
    compiled.bytes = sid->sid;
  } else if (const auto* access = std::get_if<platform::DescriptorValue>(&value)) {
    compiled.test = CompiledCondition::Test::kAccess;
    auto security = std::make_shared<ObjectSecurity>();
    if (ParseDescriptor(access->descriptor, *security)) compiled.security = std::move(security);
  } else if (condition.match >= platform::kMatchFlagsAllSet &&
             condition.match <= platform::kMatchFlagsNoneSet) {
    compiled.test = CompiledCondition::Test::kFlags;
    compiled.first = NumberOf(value);
  } else {
    SetInterval(value, compiled);
    ApplyOrder(condition.match, compiled);
  }
  return compiled;
}

bool MeetsFlags(std::uint32_t match, std::uint64_t actual, std::uint64_t wanted) {
  switch (match) {
    case platform::kMatchFlagsAllSet:
      return (actual & wanted) == wanted;
    case platform::kMatchFlagsAnySet:
      return (actual & wanted) != 0;
    default:
      return (actual & wanted) == 0;
  }
}

bool MeetsBytes(std::uint32_t match, const Bytes& actual, const Bytes& wanted) {
  switch (match) {
    case platform::kMatchEqual:
      return actual == wanted;
    case platform::kMatchNotEqual:
      return actual != wanted;
    case platform::kMatchGreater:
      return actual > wanted;
    case platform::kMatchLess:
      return actual < wanted;
    case platform::kMatchGreaterOrEqual:
      return actual >= wanted;
    default:
      return actual <= wanted;
  }
}

WideNumber Address(bool ipv6, std::uint32_t v4, const platform::ByteArray16& v6) {
  return ipv6 ? WideOf(v6) : WideOf(v4);
}

WideNumber NumberOfField(FieldId field, const Subject& subject) {
  switch (field) {
    case FieldId::kProtocol:
      return WideOf(subject.connection.protocol);
    case FieldId::kLocalPort:
      return WideOf(subject.connection.local_port);
    case FieldId::kRemotePort:
      return WideOf(subject.connection.remote_port);
    case FieldId::kFlags:
      return WideOf(subject.connection.flags);
    case FieldId::kLocalAddress:
      return subject.local_address;
    default:
      return subject.remote_address;
  }
}

bool MeetsBytesField(const CompiledCondition& condition, const Connection& connection) {
  if (condition.field == FieldId::kAppId) {
    return MeetsBytes(condition.match, connection.app_id, condition.bytes);
  }
  if (!connection.package_sid.empty()) {
    return MeetsBytes(condition.match, connection.package_sid, condition.bytes);
  }
  static const Sid kUnpackaged = NobodySid();
  return MeetsBytes(condition.match, kUnpackaged, condition.bytes);
}

bool Meets(const CompiledCondition& condition, const Subject& subject) {
  const Connection& connection = subject.connection;
  // What a connection doesn't have has no value to compare; only the empty operand stands for it.
  const bool unknown = condition.field == FieldId::kUnmodelled ||
                       (condition.field == FieldId::kAppId && connection.app_id.empty());
  if (unknown || condition.test == CompiledCondition::Test::kIsEmpty) {
    return unknown && condition.test == CompiledCondition::Test::kIsEmpty;
  }
  switch (condition.test) {
    case CompiledCondition::Test::kBytes:
      return MeetsBytesField(condition, connection);
    case CompiledCondition::Test::kAccess:
      return condition.security != nullptr &&
             Grants(*condition.security, connection.user_sids, kRightMatchFilter);
    case CompiledCondition::Test::kFlags:
      return MeetsFlags(condition.match, NumberOfField(condition.field, subject).low,
                        condition.first.low);
    default:
      break;
  }
  const WideNumber actual = NumberOfField(condition.field, subject);
  const bool inside = condition.first <= actual && actual <= condition.last;
  return inside != condition.negated;
}

}  // namespace

ConditionGroups CompileConditions(const platform::Filter& filter) {
  ConditionGroups groups;
  std::vector<Guid> fields;  // of each group
  const Layer* layer = FindLayer(filter.layer);
  for (const Condition& condition : filter.conditions) {
    // Undocumented: what conditions of one field mean when another stands between them. Here they
    // are all required for a permit, which then matches less, and alternatives for a block.
    const bool permits = filter.action == platform::kActionPermit;
    auto same = std::find(fields.begin(), fields.end(), condition.field);
    if (permits && same != fields.end()) {
      same = fields.back() == condition.field ? std::prev(fields.end()) : fields.end();
    }
    const auto at = static_cast<std::size_t>(same - fields.begin());
    if (same == fields.end()) {
      fields.push_back(condition.field);
      groups.emplace_back();
    }
    if (const Field* field = layer == nullptr ? nullptr : FindField(*layer, condition.field)) {
      groups[at].push_back(Compile(condition, *field));
    }
  }
  std::stable_sort(groups.begin(), groups.end(),
                   [](const auto& a, const auto& b) { return a.front().field < b.front().field; });
  return groups;
}

Subject::Subject(const Connection& of) : connection(of) {
  const Layer* layer = FindLayer(of.layer);
  const bool ipv6 = layer != nullptr && layer->ipv6;
  local_address = Address(ipv6, of.local_v4, of.local_v6);
  remote_address = Address(ipv6, of.remote_v4, of.remote_v6);
}

bool Matches(const ConditionGroups& groups, const Subject& subject) {
  return std::all_of(groups.begin(), groups.end(), [&](const auto& alternatives) {
    return std::any_of(alternatives.begin(), alternatives.end(),
                       [&](const CompiledCondition& c) { return Meets(c, subject); });
  });
}

}  // namespace simulation

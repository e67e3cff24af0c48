#include "simulation/engine/filter_rules.h"

#include <array>
#include <bit>
#include <type_traits>
#include <variant>

#include "simulation/engine/access.h"
#include "simulation/engine/layer_fields.h"

namespace simulation {
namespace {

using platform::Code;
using platform::Condition;
using platform::Filter;
using platform::Value;

constexpr Code kZeroLength = 0x80320022;        // FWP_E_ZERO_LENGTH_ARRAY
constexpr Code kParameterRefused = 0x80320035;  // FWP_E_INVALID_PARAMETER

constexpr std::uint32_t kPermitIfCalloutUnregistered = 0x10;
constexpr std::uint32_t kSecurityRealmContext = 0x80;
constexpr std::uint32_t kKnownFlags = 0xFFF;
constexpr std::uint32_t kMatchTypes = 13;
constexpr std::uint32_t kActionIsCallout = 0x4000;
constexpr std::array<std::uint32_t, 3> kCalloutActions = {0x5003, 0x4005, 0x6004};
constexpr std::uint8_t kHighestRange = 15;
constexpr unsigned kAutoWeightBits = 60;

// Kinds of operands, as match types go by them.
enum class Operand : std::uint8_t { kEmpty, kInteger, kArray, kMask, kRange, kBlob, kSid, kAccess };

bool IsEmpty(const Value& value) {
  return std::holds_alternative<std::monostate>(value);
}

Operand OperandOf(const Value& value) {
  return std::visit(
      [](const auto& v) {
        using T = std::decay_t<decltype(v)>;
        if constexpr (std::is_integral_v<T>) return Operand::kInteger;
        if constexpr (std::is_same_v<T, platform::ByteArray16>) return Operand::kArray;
        if constexpr (std::is_same_v<T, platform::Ipv4Mask>) return Operand::kMask;
        if constexpr (std::is_same_v<T, platform::Ipv6Mask>) return Operand::kMask;
        if constexpr (std::is_same_v<T, platform::ValueRange>) return Operand::kRange;
        if constexpr (std::is_same_v<T, platform::ByteBlob>) return Operand::kBlob;
        if constexpr (std::is_same_v<T, platform::SidValue>) return Operand::kSid;
        if constexpr (std::is_same_v<T, platform::DescriptorValue>) return Operand::kAccess;
        return Operand::kEmpty;
      },
      value);
}

// Whether a plain value or the end of a range is of the field's own type; no widening.
template <typename Variant>
bool HasFieldType(const Variant& value, FieldType type, bool ipv6) {
  switch (type) {
    case FieldType::kUint8:
      return std::holds_alternative<std::uint8_t>(value);
    case FieldType::kUint16:
      return std::holds_alternative<std::uint16_t>(value);
    case FieldType::kUint32:
      return std::holds_alternative<std::uint32_t>(value);
    case FieldType::kUint64:
      return std::holds_alternative<std::uint64_t>(value);
    case FieldType::kAddress:
      return ipv6 ? std::holds_alternative<platform::ByteArray16>(value)
                  : std::holds_alternative<std::uint32_t>(value);
    default:
      return false;
  }
}

bool FitsField(const Value& value, const Field& field, bool ipv6) {
  if (IsEmpty(value) || HasFieldType(value, field.type, ipv6)) return true;
  if (const auto* range = std::get_if<platform::ValueRange>(&value)) {
    // Ends of different types are a bad range, not a bad type.
    return HasFieldType(range->low, field.type, ipv6) ||
           HasFieldType(range->high, field.type, ipv6);
  }
  switch (field.type) {
    case FieldType::kAddress:
      return ipv6 ? std::holds_alternative<platform::Ipv6Mask>(value)
                  : std::holds_alternative<platform::Ipv4Mask>(value);
    case FieldType::kBlob:
      return std::holds_alternative<platform::ByteBlob>(value);
    case FieldType::kSid:
      return std::holds_alternative<platform::SidValue>(value);
    case FieldType::kAccess:
      return std::holds_alternative<platform::DescriptorValue>(value);
    default:
      return false;
  }
}

bool MatchFits(std::uint32_t match, Operand operand) {
  switch (match) {
    case platform::kMatchEqual:
      return operand != Operand::kRange;
    case platform::kMatchNotEqual:
      return operand != Operand::kEmpty && operand != Operand::kRange &&
             operand != Operand::kAccess;
    case platform::kMatchGreater:
    case platform::kMatchLess:
    case platform::kMatchGreaterOrEqual:
    case platform::kMatchLessOrEqual:
      return operand == Operand::kInteger || operand == Operand::kArray ||
             operand == Operand::kBlob;
    case platform::kMatchRange:
      // Undocumented whether a range match without a range is this mistake or a wrong type.
      return operand == Operand::kRange;
    case platform::kMatchFlagsAllSet:
    case platform::kMatchFlagsAnySet:
    case platform::kMatchFlagsNoneSet:
      return operand == Operand::kInteger;
    default:
      // Comparison without case is for texts, which no field here has. Prefix matches of blobs
      // are not modelled and so refused.
      return false;
  }
}

Code CheckOperand(const Value& value) {
  if (const auto* range = std::get_if<platform::ValueRange>(&value)) {
    const bool ordered = range->low.index() == range->high.index() && range->low <= range->high;
    return ordered ? platform::kSuccess : platform::kInvalidRange;
  }
  if (const auto* mask = std::get_if<platform::Ipv4Mask>(&value)) {
    // Undocumented for IPv4: a mask with a gap is refused.
    const bool contiguous = std::countl_one(mask->mask) == std::popcount(mask->mask);
    return contiguous ? platform::kSuccess : platform::kInvalidNetMask;
  }
  if (const auto* mask = std::get_if<platform::Ipv6Mask>(&value)) {
    return mask->prefix <= 128 ? platform::kSuccess : platform::kInvalidNetMask;
  }
  if (const auto* blob = std::get_if<platform::ByteBlob>(&value)) {
    return blob->bytes.empty() ? kZeroLength : platform::kSuccess;
  }
  if (const auto* sid = std::get_if<platform::SidValue>(&value)) {
    if (sid->sid.empty()) return platform::kNullPointer;
    const bool valid = IsValidSid(sid->sid.data(), sid->sid.size());
    return valid ? platform::kSuccess : kParameterRefused;
  }
  if (const auto* access = std::get_if<platform::DescriptorValue>(&value)) {
    if (access->descriptor.empty()) return platform::kNullPointer;
    ObjectSecurity parsed;
    const bool valid = ParseDescriptor(access->descriptor, parsed);
    return valid ? platform::kSuccess : platform::kInvalidSecurityDescriptor;
  }
  return platform::kSuccess;
}

Code CheckCondition(const Condition& condition, const Layer& layer) {
  const Field* field = FindField(layer, condition.field);
  if (field == nullptr) return platform::kConditionNotFound;
  if (condition.match >= kMatchTypes) return platform::kInvalidEnumerator;
  if (!FitsField(condition.value, *field, layer.ipv6)) return platform::kTypeMismatch;
  if (!MatchFits(condition.match, OperandOf(condition.value))) return platform::kMatchTypeMismatch;
  return CheckOperand(condition.value);
}

Code CheckFlags(const Filter& filter) {
  const std::uint32_t flags = filter.flags;
  // The engine alone reports a filter as disabled. The code for a filter that is both persistent
  // and boot-time is undocumented.
  if ((flags & ~kKnownFlags) != 0 || (flags & platform::kFilterDisabled) != 0) {
    return platform::kInvalidFlags;
  }
  if ((flags & platform::kFilterPersistent) != 0 && (flags & platform::kFilterBootTime) != 0) {
    return platform::kInvalidFlags;
  }
  if ((flags & kPermitIfCalloutUnregistered) != 0 && (filter.action & kActionIsCallout) == 0) {
    return platform::kInvalidFlags;
  }
  if ((flags & (platform::kFilterHasProviderContext | kSecurityRealmContext)) != 0) {
    return platform::kProviderContextNotFound;  // no such object is modelled
  }
  return platform::kSuccess;
}

Code CheckAction(std::uint32_t action) {
  if (action == platform::kActionBlock || action == platform::kActionPermit) {
    return platform::kSuccess;
  }
  for (const std::uint32_t callout : kCalloutActions) {
    if (action == callout) return platform::kCalloutNotFound;  // none is registered
  }
  return platform::kInvalidActionType;
}

Code CheckWeight(const Value& weight) {
  if (IsEmpty(weight) || std::holds_alternative<std::uint64_t>(weight)) return platform::kSuccess;
  const auto* range = std::get_if<std::uint8_t>(&weight);
  // Undocumented: the code for a range above 15.
  return range != nullptr && *range <= kHighestRange ? platform::kSuccess
                                                     : platform::kInvalidWeight;
}

bool IsHostOrValue(const Condition& condition) {
  const Operand operand = OperandOf(condition.value);
  return condition.match == platform::kMatchEqual &&
         (operand == Operand::kInteger || operand == Operand::kArray);
}

}  // namespace

Code ValidateFilter(const Filter& filter) {
  if (filter.name.empty()) return platform::kNullDisplayName;
  if (const Code code = CheckFlags(filter)) return code;
  const Layer* layer = FindLayer(filter.layer);
  if (layer == nullptr) return platform::kLayerNotFound;
  if (const Code code = CheckWeight(filter.weight)) return code;
  if (const Code code = CheckAction(filter.action)) return code;
  for (const Condition& condition : filter.conditions) {
    if (const Code code = CheckCondition(condition, *layer)) return code;
  }
  return platform::kSuccess;
}

// The platform's own way is undocumented. What its filters show is kept: each field named adds its
// bit, single addresses rank above ranges, and ranges of different size tie.
std::uint64_t EffectiveWeight(const Filter& filter) {
  if (const auto* given = std::get_if<std::uint64_t>(&filter.weight)) return *given;
  constexpr unsigned kFieldBits = 32;
  constexpr unsigned kRangeBit = 47;
  constexpr unsigned kHostBit = 49;
  std::uint64_t weight = 0;
  const Layer* layer = FindLayer(filter.layer);
  for (const Condition& condition : filter.conditions) {
    const Field* field = layer == nullptr ? nullptr : FindField(*layer, condition.field);
    if (field == nullptr) continue;
    weight |= std::uint64_t{1} << (kFieldBits + static_cast<unsigned>(field->id));
    if (field->type == FieldType::kAddress) {
      weight |= std::uint64_t{1} << (IsHostOrValue(condition) ? kHostBit : kRangeBit);
    }
  }
  const auto* range = std::get_if<std::uint8_t>(&filter.weight);
  return range == nullptr ? weight : weight | static_cast<std::uint64_t>(*range) << kAutoWeightBits;
}

}  // namespace simulation

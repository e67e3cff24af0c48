#include "filtering/filter_signature.h"

#include <charconv>
#include <variant>

namespace kestrelon {
namespace {

using platform::DataType;

void AppendNumber(std::uint64_t value, int base, std::string& out) {
  char digits[20];  // the largest value in decimal
  const std::to_chars_result result = std::to_chars(digits, digits + sizeof digits, value, base);
  out.append(digits, result.ptr);
}

void AppendDecimal(std::uint64_t value, std::string& out) {
  AppendNumber(value, 10, out);
}

template <typename ByteRange>
void AppendBytes(const ByteRange& bytes, std::string& out) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::size_t at = out.size();
  out.resize(at + bytes.size() * 2);
  for (const std::uint8_t byte : bytes) {
    out[at++] = kDigits[byte >> 4];
    out[at++] = kDigits[byte & 0xF];
  }
}

// Whether a value of this type is a pointer on the platform that may be null; nothing is told of a
// null one.
bool MayBeNull(std::uint32_t type) {
  return type == platform::kTypeUint64 || type == platform::kTypeByteBlob ||
         type == platform::kTypeIpv4Mask || type == platform::kTypeIpv6Mask ||
         type == platform::kTypeRange;
}

// Writes the text of a weight, an operand or the end of a range.
struct ValueAppender {
  std::string& out;

  void Type(std::uint32_t type) const {
    out += 't';
    AppendDecimal(type, out);
    out += ':';
  }
  void Integer(DataType type, std::uint64_t value) const {
    Type(type);
    AppendDecimal(value, out);
  }
  void Untold(std::uint32_t type) const {
    Type(type);
    out += '?';
  }

  void operator()(std::monostate) const { Untold(platform::kTypeEmpty); }
  void operator()(std::uint8_t value) const { Integer(platform::kTypeUint8, value); }
  void operator()(std::uint16_t value) const { Integer(platform::kTypeUint16, value); }
  void operator()(std::uint32_t value) const { Integer(platform::kTypeUint32, value); }
  void operator()(std::uint64_t value) const { Integer(platform::kTypeUint64, value); }
  void operator()(const platform::ByteArray16&) const { Untold(platform::kTypeByteArray16); }
  void operator()(const platform::SidValue&) const { Untold(platform::kTypeSid); }
  void operator()(const platform::DescriptorValue&) const {
    Untold(platform::kTypeSecurityDescriptor);
  }
  void operator()(const platform::OtherValue& value) const {
    Type(value.type);
    if (!MayBeNull(value.type)) out += '?';
  }
  void operator()(const platform::ByteBlob& blob) const {
    Type(platform::kTypeByteBlob);
    AppendBytes(blob.bytes, out);
  }
  void operator()(const platform::Ipv4Mask& value) const {
    Type(platform::kTypeIpv4Mask);
    AppendNumber(value.address, 16, out);
    out += '/';
    AppendNumber(value.mask, 16, out);
  }
  void operator()(const platform::Ipv6Mask& value) const {
    Type(platform::kTypeIpv6Mask);
    AppendBytes(value.address, out);
    out += '/';
    AppendDecimal(value.prefix, out);
  }
  void operator()(const platform::ValueRange& range) const {
    Type(platform::kTypeRange);
    out += '[';
    std::visit(*this, range.low);
    out += '-';
    std::visit(*this, range.high);
    out += ']';
  }
};

}  // namespace

void AppendFilterSignature(const platform::Filter& filter, std::string& out) {
  const ValueAppender append_value{out};
  AppendGuidText(filter.layer, out);
  out += '|';
  AppendGuidText(filter.sublayer, out);
  out += "|a";
  AppendDecimal(filter.action, out);
  out += "|f";
  AppendDecimal(filter.flags, out);
  out += "|w";
  std::visit(append_value, filter.weight);
  out += "|p";
  if (filter.provider) {
    AppendGuidText(*filter.provider, out);
  } else {
    out += '-';
  }
  for (const platform::Condition& condition : filter.conditions) {
    out += "|c";
    AppendGuidText(condition.field, out);
    out += 'm';
    AppendDecimal(condition.match, out);
    out += '=';
    std::visit(append_value, condition.value);
  }
}

}  // namespace kestrelon

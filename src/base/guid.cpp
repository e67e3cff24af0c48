#include "base/guid.h"

namespace kestrelon {
namespace {

void AppendHex(std::uint32_t value, int digits, std::string& out) {
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
    out += "0123456789ABCDEF"[(value >> shift) & 0xF];
  }
}

}  // namespace

void AppendGuidText(const Guid& guid, std::string& out) {
  out += '{';
  AppendHex(guid.data1, 8, out);
  out += '-';
  AppendHex(guid.data2, 4, out);
  out += '-';
  AppendHex(guid.data3, 4, out);
  out += '-';
  for (std::size_t i = 0; i < guid.data4.size(); ++i) {
    if (i == 2) out += '-';
    AppendHex(guid.data4[i], 2, out);
  }
  out += '}';
}

std::string GuidText(const Guid& guid) {
  std::string text;
  text.reserve(38);
  AppendGuidText(guid, text);
  return text;
}

}  // namespace kestrelon

#include "base/guid.h"

namespace kestrelon {
namespace {

constexpr std::size_t kTextSize = 38;

char* PutHex(std::uint32_t value, int digits, char* out) {
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
    *out++ = "0123456789ABCDEF"[(value >> shift) & 0xF];
  }
  return out;
}

}  // namespace

void AppendGuidText(const Guid& guid, std::string& out) {
  // Written aside and appended once: signatures consist mostly of these.
  char text[kTextSize];
  char* end = text;
  *end++ = '{';
  end = PutHex(guid.data1, 8, end);
  *end++ = '-';
  end = PutHex(guid.data2, 4, end);
  *end++ = '-';
  end = PutHex(guid.data3, 4, end);
  *end++ = '-';
  for (std::size_t i = 0; i < guid.data4.size(); ++i) {
    if (i == 2) *end++ = '-';
    end = PutHex(guid.data4[i], 2, end);
  }
  *end++ = '}';
  out.append(text, kTextSize);
}

std::string GuidText(const Guid& guid) {
  std::string text;
  text.reserve(kTextSize);
  AppendGuidText(guid, text);
  return text;
}

}  // namespace kestrelon

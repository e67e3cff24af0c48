#include "base/format.h"

#include <cwchar>

namespace kestrelon {
namespace {

void AppendInteger(const FormatDirective& directive, const FormatArgument& argument,
                   std::wstring& out) {
  const bool negative = argument.kind == FormatArgument::Kind::kSigned && argument.signed_value < 0;
  std::uint64_t magnitude = argument.unsigned_value;
  if (argument.kind == FormatArgument::Kind::kSigned) {
    magnitude = static_cast<std::uint64_t>(argument.signed_value);
    if (negative) magnitude = 0 - magnitude;
  }
  const unsigned base = directive.letter == L'x' || directive.letter == L'X' ? 16 : 10;
  const wchar_t* digits = directive.letter == L'X' ? L"0123456789ABCDEF" : L"0123456789abcdef";
  wchar_t buffer[24];
  int used = 0;
  do {
    buffer[used++] = digits[magnitude % base];
    magnitude /= base;
  } while (magnitude != 0);
  int padding = directive.width - used - (negative ? 1 : 0);
  if (!directive.zeros) {
    for (; padding > 0; --padding) out += L' ';
  }
  if (negative) out += L'-';
  for (; padding > 0; --padding) out += L'0';
  while (used > 0) out += buffer[--used];
}

void AppendFloat(const FormatDirective& directive, double value, std::wstring& out) {
  wchar_t buffer[352];  // the longest finite double has 309 digits before the point
  const int precision = directive.precision < 0 ? 6 : directive.precision;
  const int length = std::swprintf(buffer, std::size(buffer), L"%.*f", precision, value);
  if (length > 0) out.append(buffer, static_cast<std::size_t>(length));
}

}  // namespace

std::wstring FormatArguments(std::wstring_view text, const FormatArgument* arguments) {
  std::wstring out;
  out.reserve(text.size() + 64);
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] != L'%') {
      out += text[i++];
      continue;
    }
    const FormatDirective directive = ReadDirective(text, i);
    i = directive.end;
    if (directive.letter == L'%') {
      out += L'%';
      continue;
    }
    const FormatArgument& argument = *arguments++;
    if (argument.kind == FormatArgument::Kind::kText) {
      out += argument.text;
    } else if (argument.kind == FormatArgument::Kind::kFloat) {
      AppendFloat(directive, argument.float_value, out);
    } else {
      AppendInteger(directive, argument, out);
    }
  }
  return out;
}

}  // namespace kestrelon

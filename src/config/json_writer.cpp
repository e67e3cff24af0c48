// The writer of JSON texts. Equal values give equal bytes, on every machine and in every locale.
#include <charconv>
#include <cmath>
#include <string>

#include "config/json.h"
#include "config/json_scan.h"

namespace kestrelon {
namespace {

// Whole numbers below this are written without point or exponent.
constexpr double kPlainWholeBound = 1e15;

class JsonWriter {
 public:
  JsonWriter(std::string& out, bool pretty) : out_(out), pretty_(pretty) {}

  void Value(const Json& value, std::size_t depth) {
    switch (value.kind()) {
      case Json::Kind::kNull:
        out_ += "null";
        break;
      case Json::Kind::kBoolean:
        out_ += value.boolean() ? "true" : "false";
        break;
      case Json::Kind::kNumber:
        Number(value);
        break;
      case Json::Kind::kString:
        Text(value.text());
        break;
      case Json::Kind::kArray:
        Items(value, '[', ']', depth);
        break;
      case Json::Kind::kObject:
        Items(value, '{', '}', depth);
        break;
    }
  }

 private:
  void Number(const Json& value) {
    char digits[64];
    std::to_chars_result end{digits, std::errc()};
    const double floating = value.floating();
    if (value.is_integer()) {
      end = std::to_chars(digits, std::end(digits), value.integer());
    } else if (!std::isfinite(floating)) {
      out_ += "null";
    } else if (std::floor(floating) == floating && std::fabs(floating) < kPlainWholeBound) {
      end = std::to_chars(digits, std::end(digits), static_cast<std::int64_t>(floating));
    } else {
      // Defined as the text of "%.17g", which reads back as the same number.
      end = std::to_chars(digits, std::end(digits), floating, std::chars_format::general, 17);
    }
    out_.append(digits, end.ptr);
  }

  void Text(std::string_view text) {
    out_ += '"';
    const char* at = text.data();
    const char* const end = at + text.size();
    for (;;) {
      const char* special = FindSpecialByte(at, end);
      out_.append(at, special);
      if (special == end) break;
      Escaped(*special);
      at = special + 1;
    }
    out_ += '"';
  }

  void Escaped(char c) {
    out_ += '\\';
    switch (c) {
      case '\n':
        out_ += 'n';
        break;
      case '\r':
        out_ += 'r';
        break;
      case '\t':
        out_ += 't';
        break;
      case '"':
      case '\\':
        out_ += c;
        break;
      default:
        out_ += "u00";
        out_ += "01"[c >> 4];
        out_ += "0123456789abcdef"[c & 0xF];
    }
  }

  void Items(const Json& value, char open, char close, std::size_t depth) {
    out_ += open;
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (i != 0) out_ += ',';
      NewLine(depth + 1);
      if (value.IsObject()) {
        Text(value.KeyAt(i));
        out_ += pretty_ ? ": " : ":";
        Value(value.ValueAt(i), depth + 1);
      } else {
        Value(value.At(i), depth + 1);
      }
    }
    if (value.size() != 0) NewLine(depth);
    out_ += close;
  }

  void NewLine(std::size_t depth) {
    if (!pretty_) return;
    out_ += '\n';
    out_.append(2 * depth, ' ');
  }

  std::string& out_;
  bool pretty_;
};

}  // namespace

std::string Json::Dump(bool pretty) const {
  std::string out;
  JsonWriter(out, pretty).Value(*this, 0);
  return out;
}

}  // namespace kestrelon

// The reader of JSON texts. It takes bytes from files and from a pipe that unprivileged processes
// write to, so nesting, the number of values and the time for repeated keys are bounded.
//
// Finished values stand on one stack until their container closes, which then takes them in one
// block of the right size.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <system_error>
#include <utility>
#include <vector>

#include "base/text.h"
#include "config/json.h"
#include "config/json_scan.h"

namespace kestrelon {
namespace {

constexpr unsigned kDeepestValue = 64;
constexpr std::uint32_t kMostValues = 1'000'000;

// Up to this many members, comparing each key with those before it is the fastest.
constexpr std::size_t kFewMembers = 24;

constexpr bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

int HexDigit(char c) {
  if (IsDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The four hexadecimal digits at `at` as a number, -1 if one is none.
int CodeUnit(const char* at) {
  int unit = 0;
  for (int i = 0; i < 4; ++i) {
    const int digit = HexDigit(at[i]);
    if (digit < 0) return -1;
    unit = unit * 16 + digit;
  }
  return unit;
}

// Whether a number that left the range of double did so upwards: whether its first significant
// digit stands before the point once the exponent has been applied.
bool IsHuge(std::string_view number) {
  const std::size_t e = number.find_first_of("eE");
  const std::string_view digits = number.substr(0, e);
  const std::size_t first = digits.find_first_of("123456789");
  if (first == std::string_view::npos) return false;
  const std::size_t point = std::min(digits.find('.'), digits.size());
  const auto magnitude = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);
  if (e == std::string_view::npos) return magnitude > 0;
  const bool negative = number[e + 1] == '-';
  const char* from = number.data() + e + (number[e + 1] == '-' || number[e + 1] == '+' ? 2 : 1);
  std::int64_t exponent = 0;
  const auto read = std::from_chars(from, number.data() + number.size(), exponent);
  if (read.ec != std::errc()) return !negative;
  return negative ? magnitude > exponent : magnitude > -exponent;
}

bool HasRepeatedKey(const Json* items, std::size_t count) {
  for (std::size_t i = 2; i < count; i += 2) {
    const std::string_view key = items[i].text();
    for (std::size_t j = 0; j < i; j += 2) {
      if (items[j].text() == key) return true;
    }
  }
  return false;
}

// Gives each repeated key its first position and its last value; answers how many items remain.
// Sorting keeps its bound whatever the keys are, where a hash would have to trust them.
std::size_t MergeRepeatedKeys(Json* items, std::size_t count) {
  if (count <= 2 * kFewMembers && !HasRepeatedKey(items, count)) return count;
  std::vector<std::uint32_t> order(count / 2);
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<std::uint32_t>(2 * i);
  std::sort(order.begin(), order.end(), [items](std::uint32_t a, std::uint32_t b) {
    const int compared = items[a].text().compare(items[b].text());
    return compared != 0 ? compared < 0 : a < b;
  });
  std::vector<bool> repeated(order.size());
  for (std::size_t first = 0; first < order.size();) {
    std::size_t last = first;
    while (last + 1 < order.size() && items[order[last + 1]].text() == items[order[first]].text()) {
      repeated[order[++last] / 2] = true;
    }
    if (last != first) items[order[first] + 1] = std::move(items[order[last] + 1]);
    first = last + 1;
  }
  std::size_t kept = 0;
  for (std::size_t i = 0; i < count; i += 2) {
    if (repeated[i / 2]) continue;
    if (kept != i) {
      items[kept] = std::move(items[i]);
      items[kept + 1] = std::move(items[i + 1]);
    }
    kept += 2;
  }
  return kept;
}

}  // namespace

class JsonParser {
 public:
  explicit JsonParser(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}

  bool Document(Json& value) {
    if (!Value(0)) return false;
    SkipBlanks();
    if (at_ != end_) return Fail("trailing characters");
    value = std::move(stack_.back());
    return true;
  }

  const char* error() const { return error_; }

 private:
  // The first message stands: an outer step that fails because of an inner one doesn't change it.
  bool Fail(const char* message) {
    if (error_ == nullptr) error_ = message;
    return false;
  }

  void SkipBlanks() {
    while (at_ != end_ && (*at_ == ' ' || *at_ == '\n' || *at_ == '\t' || *at_ == '\r')) ++at_;
  }

  bool NextIs(char c) const { return at_ != end_ && *at_ == c; }

  bool Value(unsigned depth);
  bool Array(unsigned depth);
  bool Object(unsigned depth);
  bool Literal(std::string_view word, Json value);
  bool String();
  bool EscapedString();
  bool Escape();
  bool UnicodeEscape();
  bool Number();
  bool Digits();
  void Close(Json::Kind kind, std::size_t base, std::size_t count);

  const char* at_;
  const char* end_;
  const char* error_ = nullptr;
  std::uint32_t values_ = 0;
  std::vector<Json> stack_;
  std::string unescaped_;  // the text under way, kept for its memory
};

bool JsonParser::Value(unsigned depth) {
  if (depth > kDeepestValue) return Fail("nesting too deep");
  if (++values_ > kMostValues) return Fail("too many values");
  SkipBlanks();
  if (at_ == end_) return Fail("unexpected end of input");
  switch (*at_) {
    case '{':
      return Object(depth);
    case '[':
      return Array(depth);
    case '"':
      return String();
    case 't':
      return Literal("true", true);
    case 'f':
      return Literal("false", false);
    case 'n':
      return Literal("null", Json());
    default:
      return *at_ == '-' || IsDigit(*at_) ? Number() : Fail("unexpected character");
  }
}

bool JsonParser::Literal(std::string_view word, Json value) {
  if (!std::string_view(at_, static_cast<std::size_t>(end_ - at_)).starts_with(word)) {
    return Fail("unexpected character");
  }
  at_ += word.size();
  stack_.push_back(std::move(value));
  return true;
}

bool JsonParser::Object(unsigned depth) {
  const std::size_t base = stack_.size();
  ++at_;
  SkipBlanks();
  if (!NextIs('}')) {
    for (;; ++at_) {
      SkipBlanks();
      if (!NextIs('"') || !String()) return Fail("expected object key");
      SkipBlanks();
      if (!NextIs(':')) return Fail("expected ':'");
      ++at_;
      if (!Value(depth + 1)) return false;
      SkipBlanks();
      if (NextIs('}')) break;
      if (!NextIs(',')) return Fail("expected ',' or '}'");
    }
  }
  ++at_;
  Close(Json::Kind::kObject, base, MergeRepeatedKeys(stack_.data() + base, stack_.size() - base));
  return true;
}

bool JsonParser::Array(unsigned depth) {
  const std::size_t base = stack_.size();
  ++at_;
  SkipBlanks();
  if (!NextIs(']')) {
    for (;; ++at_) {
      if (!Value(depth + 1)) return false;
      SkipBlanks();
      if (NextIs(']')) break;
      if (!NextIs(',')) return Fail("expected ',' or ']'");
    }
  }
  ++at_;
  Close(Json::Kind::kArray, base, stack_.size() - base);
  return true;
}

// Replaces what stands on the stack from `base` on by one container of its first `count` items.
void JsonParser::Close(Json::Kind kind, std::size_t base, std::size_t count) {
  Json container = Json::FromItems(kind, stack_.data() + base, count);
  stack_.resize(base);
  stack_.push_back(std::move(container));
}

bool JsonParser::String() {
  const char* from = ++at_;
  at_ = FindSpecialByte(at_, end_);
  if (NextIs('"')) {
    stack_.emplace_back(std::string_view(from, static_cast<std::size_t>(at_ - from)));
    ++at_;
    return true;
  }
  unescaped_.assign(from, at_);
  return EscapedString();
}

// Goes on with a text whose plain beginning is in `unescaped_`.
bool JsonParser::EscapedString() {
  for (;;) {
    if (at_ == end_) return Fail("unterminated string");
    if (*at_ == '"') break;
    if (*at_ != '\\') return Fail("unescaped control character in string");
    ++at_;
    if (!Escape()) return false;
    const char* from = at_;
    at_ = FindSpecialByte(at_, end_);
    unescaped_.append(from, at_);
  }
  ++at_;
  stack_.emplace_back(std::string_view(unescaped_));
  return true;
}

bool JsonParser::Escape() {
  if (at_ == end_) return Fail("unterminated string");
  constexpr std::string_view kLetters = "\"\\/bfnrt";
  constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
  const char letter = *at_++;
  if (letter == 'u') return UnicodeEscape();
  const std::size_t known = kLetters.find(letter);
  if (known == std::string_view::npos) return Fail("bad escape");
  unescaped_ += kMeanings[known];
  return true;
}

bool JsonParser::UnicodeEscape() {
  const int unit = end_ - at_ < 4 ? -1 : CodeUnit(at_);
  if (unit < 0) return Fail("bad \\u escape");
  at_ += 4;
  auto point = static_cast<char32_t>(unit);
  if (point >= 0xDC00 && point <= 0xDFFF) return Fail("lone surrogate");
  if (point >= 0xD800 && point <= 0xDBFF) {
    if (end_ - at_ < 6 || at_[0] != '\\' || at_[1] != 'u') return Fail("lone surrogate");
    const int low = CodeUnit(at_ + 2);
    if (low < 0xDC00 || low > 0xDFFF) return Fail("bad surrogate pair");
    at_ += 6;
    point = 0x10000 + ((point - 0xD800) << 10) + (static_cast<char32_t>(low) - 0xDC00);
  }
  AppendUtf8(point, unescaped_);
  return true;
}

// Steps over a run of digits; false when there is none.
bool JsonParser::Digits() {
  const char* from = at_;
  while (at_ != end_ && IsDigit(*at_)) ++at_;
  return at_ != from;
}

bool JsonParser::Number() {
  const char* from = at_;
  if (*at_ == '-') ++at_;
  const bool leading_zero = NextIs('0');
  const char* first_digit = at_;
  if (!Digits()) return Fail("bad number");
  if (leading_zero && at_ - first_digit > 1) return Fail("bad number (leading zero)");
  bool whole = true;
  if (NextIs('.')) {
    whole = false;
    ++at_;
    if (!Digits()) return Fail("bad number");
  }
  if (NextIs('e') || NextIs('E')) {
    whole = false;
    ++at_;
    if (NextIs('+') || NextIs('-')) ++at_;
    if (!Digits()) return Fail("bad number");
  }
  std::int64_t integer = 0;
  if (whole && std::from_chars(from, at_, integer).ec == std::errc()) {
    stack_.emplace_back(integer);
    return true;
  }
  double value = 0;
  if (std::from_chars(from, at_, value).ec == std::errc::result_out_of_range) {
    if (IsHuge({from, static_cast<std::size_t>(at_ - from)})) return Fail("number out of range");
    value = *from == '-' ? -0.0 : 0.0;
  }
  if (!std::isfinite(value)) return Fail("number out of range");
  stack_.push_back(Json::FromFloating(value));
  return true;
}

bool Json::Parse(std::string_view text, Json& value, std::string* error) {
  JsonParser parser(text);
  if (parser.Document(value)) return true;
  if (error != nullptr) *error = parser.error();
  return false;
}

}  // namespace kestrelon

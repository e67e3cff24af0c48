// The writer of JSON texts. Equal values give equal bytes, on every machine and in every locale.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "config/json.h"
#include "config/json_scan.h"

namespace kestrelon {
namespace {

// Whole numbers below this are written without point or exponent.
constexpr double kPlainWholeBound = 1e15;

// Room that the text of a value will most likely need. Growing a text of megabytes step by step
// costs more than writing it; too small a figure costs only that.
std::size_t LikelyLength(const Json& value, bool pretty, std::size_t depth) {
  constexpr std::size_t kLongestLiteralOrUsualNumber = 20;
  const auto text_length = [](std::string_view text) {
    return text.size() + text.size() / 8 + 2;  // with some escapes and the quotes
  };
  if (value.IsString()) return text_length(value.text());
  if (value.size() == 0) return kLongestLiteralOrUsualNumber;
  const std::size_t line = pretty ? 2 * depth + 4 : 0;
  std::size_t length = line + 2;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const Json& item = value.IsObject() ? value.ValueAt(i) : value.At(i);
    if (value.IsObject()) length += text_length(value.KeyAt(i)) + 2;
    length += line + 1 + LikelyLength(item, pretty, depth + 1);
  }
  return length;
}

// Copies the bytes of a text until one that must be escaped; answers where it stopped. Looking and
// copying go eight bytes at a time, and never past the room that the whole text takes.
const char* CopyPlainBytes(const char* at, const char* end, char* to) {
  if (end - at < 8) {
    while (at != end && *at != '"' && *at != '\\' && static_cast<unsigned char>(*at) >= 0x20) {
      *to++ = *at++;
    }
    return at;
  }
  for (; end - at >= 8; at += 8, to += 8) {
    std::memcpy(to, at, 8);
    if (const std::uint64_t marks = MarkSpecialBytes(at)) return at + std::countr_zero(marks) / 8;
  }
  // The last eight bytes overlap with some that have been copied and are plain.
  const std::ptrdiff_t back = 8 - (end - at);
  std::memcpy(to - back, end - 8, 8);
  const std::uint64_t marks = MarkSpecialBytes(end - 8);
  return marks == 0 ? end : end - 8 + std::countr_zero(marks) / 8;
}

// A text that grows behind a bare cursor: appending to a string costs a check, a call and a closing
// null each time.
class TextSink {
 public:
  explicit TextSink(std::size_t likely_length) { out_.reserve(likely_length); }

  // Where the next bytes go, with room for `size` of them. Advance then says how many they were.
  char* Room(std::size_t size) {
    if (out_.size() - used_ < size) out_.resize(out_.size() + std::max(size, kStep));
    return out_.data() + used_;
  }
  void Advance(const char* end) { used_ = static_cast<std::size_t>(end - out_.data()); }

  void Put(char c) {
    *Room(1) = c;
    ++used_;
  }
  void Put(std::string_view text) {
    text.copy(Room(text.size()), text.size());
    used_ += text.size();
  }

  std::string Take() {
    out_.resize(used_);
    return std::move(out_);
  }

 private:
  // Resizing fills with nulls: steps small enough for them to be still in the cache when they are
  // written over.
  static constexpr std::size_t kStep = 8192;

  std::string out_;
  std::size_t used_ = 0;
};

class JsonWriter {
 public:
  JsonWriter(TextSink& out, bool pretty) : out_(out), pretty_(pretty) {}

  void Value(const Json& value, std::size_t depth) {
    switch (value.kind()) {
      case Json::Kind::kNull:
        out_.Put("null");
        break;
      case Json::Kind::kBoolean:
        out_.Put(value.boolean() ? "true" : "false");
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
    constexpr std::size_t kLongestNumber = 64;
    char* const from = out_.Room(kLongestNumber);
    char* const limit = from + kLongestNumber;
    const double floating = value.floating();
    std::to_chars_result end{from, std::errc()};
    if (value.is_integer()) {
      end = std::to_chars(from, limit, value.integer());
    } else if (!std::isfinite(floating)) {
      out_.Put("null");
      return;
    } else if (std::floor(floating) == floating && std::fabs(floating) < kPlainWholeBound) {
      end = std::to_chars(from, limit, static_cast<std::int64_t>(floating));
    } else {
      // Defined as the text of "%.17g", which reads back as the same number.
      end = std::to_chars(from, limit, floating, std::chars_format::general, 17);
    }
    out_.Advance(end.ptr);
  }

  void Text(std::string_view text) {
    constexpr std::size_t kQuotesAndOneEscape = 8;
    const char* at = text.data();
    const char* const end = at + text.size();
    char* to = out_.Room(text.size() + kQuotesAndOneEscape);
    *to++ = '"';
    for (;;) {
      const char* special = CopyPlainBytes(at, end, to);
      to += special - at;
      if (special == end) break;
      out_.Advance(Escaped(*special, to));
      at = special + 1;
      to = out_.Room(static_cast<std::size_t>(end - at) + kQuotesAndOneEscape);
    }
    *to++ = '"';
    out_.Advance(to);
  }

  // Writes at most six bytes; answers the place behind them.
  static char* Escaped(char c, char* to) {
    constexpr std::string_view kControls = "\n\r\t";
    constexpr std::string_view kLetters = "nrt";
    *to++ = '\\';
    if (static_cast<unsigned char>(c) >= 0x20) {
      *to++ = c;
    } else if (const std::size_t known = kControls.find(c); known != std::string_view::npos) {
      *to++ = kLetters[known];
    } else {
      to = std::copy_n("u00", 3, to);
      *to++ = "01"[c >> 4];
      *to++ = "0123456789abcdef"[c & 0xF];
    }
    return to;
  }

  void Items(const Json& value, char open, char close, std::size_t depth) {
    out_.Put(open);
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (i != 0) out_.Put(',');
      NewLine(depth + 1);
      if (value.IsObject()) {
        Text(value.KeyAt(i));
        out_.Put(pretty_ ? ": " : ":");
        Value(value.ValueAt(i), depth + 1);
      } else {
        Value(value.At(i), depth + 1);
      }
    }
    if (value.size() != 0) NewLine(depth);
    out_.Put(close);
  }

  void NewLine(std::size_t depth) {
    if (!pretty_) return;
    char* to = out_.Room(2 * depth + 1);
    *to++ = '\n';
    out_.Advance(std::fill_n(to, 2 * depth, ' '));
  }

  TextSink& out_;
  bool pretty_;
};

}  // namespace

std::string Json::Dump(bool pretty) const {
  TextSink sink(LikelyLength(*this, pretty, 0));
  JsonWriter(sink, pretty).Value(*this, 0);
  return sink.Take();
}

}  // namespace kestrelon

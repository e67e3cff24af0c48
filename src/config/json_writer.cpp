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

// Copies the bytes of a text until one that must be escaped; answers where it stopped. Looking and
// copying go many bytes at a time, and never past the room that the whole text takes.
inline const char* CopyPlainBytes(const char* at, const char* end, char* to) {
  for (; end - at >= 8; at += 8, to += 8) {
    std::memcpy(to, at, 8);
    if (const std::uint64_t marks = MarkSpecialBytes(at)) return at + std::countr_zero(marks) / 8;
  }
  if (end - at >= 4) {
    // The first four bytes and the last four, which overlap. Those of the second half that the
    // first has too are marked in both, so that the lowest mark is that of the first special byte.
    char halves[8];
    std::memcpy(halves, at, 4);
    std::memcpy(halves + 4, end - 4, 4);
    std::memcpy(to, halves, 4);
    std::memcpy(to + (end - at) - 4, halves + 4, 4);
    const std::uint64_t marks = MarkSpecialBytes(halves);
    if (marks == 0) return end;
    const int place = std::countr_zero(marks) / 8;
    return place < 4 ? at + place : end - 8 + place;
  }
  while (at != end && *at != '"' && *at != '\\' && static_cast<unsigned char>(*at) >= 0x20) {
    *to++ = *at++;
  }
  return at;
}

// A text that grows behind a bare cursor: appending to a string costs a check, a call and a closing
// null each time.
class TextSink {
 public:
  // Where the next bytes go, with room for `size` of them. Advance then says where they end.
  char* Room(std::size_t size) {
    if (static_cast<std::size_t>(limit_ - next_) < size) Grow(size);
    return next_;
  }
  void Advance(char* end) { next_ = end; }

  void Put(char c) {
    char* const to = Room(1);
    *to = c;
    next_ = to + 1;
  }
  template <std::size_t kSize>
  void Put(const char (&literal)[kSize]) {
    char* const to = Room(kSize - 1);
    std::memcpy(to, literal, kSize - 1);
    next_ = to + kSize - 1;
  }

  std::string Take() {
    out_.resize(used());
    return std::move(out_);
  }

 private:
  // Resizing fills with nulls: steps small enough for them to be still in the cache when they are
  // written over. The string itself sees to it that it rarely moves.
  static constexpr std::size_t kStep = 8192;

  std::size_t used() const { return static_cast<std::size_t>(next_ - out_.data()); }

  // Kept apart, so that Room stays short enough to stand at each place that asks for it.
  [[gnu::noinline]] void Grow(std::size_t size) {
    const std::size_t before = used();
    out_.resize(out_.size() + std::max(size, kStep));
    next_ = out_.data() + before;
    limit_ = out_.data() + out_.size();
  }

  std::string out_;
  char* next_ = out_.data();
  char* limit_ = next_;
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
        value.boolean() ? out_.Put("true") : out_.Put("false");
        break;
      case Json::Kind::kNumber:
        Number(value);
        break;
      case Json::Kind::kString:
        Text(value.text());
        break;
      case Json::Kind::kArray:
        Array(value, depth);
        break;
      case Json::Kind::kObject:
        Object(value, depth);
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

  void Array(const Json& value, std::size_t depth) {
    out_.Put('[');
    for (std::size_t i = 0; i < value.size(); ++i) {
      NextLine(i != 0, depth + 1);
      Value(value.At(i), depth + 1);
    }
    if (value.size() != 0) NextLine(false, depth);
    out_.Put(']');
  }

  void Object(const Json& value, std::size_t depth) {
    out_.Put('{');
    for (std::size_t i = 0; i < value.size(); ++i) {
      NextLine(i != 0, depth + 1);
      Text(value.KeyAt(i));
      pretty_ ? out_.Put(": ") : out_.Put(":");
      Value(value.ValueAt(i), depth + 1);
    }
    if (value.size() != 0) NextLine(false, depth);
    out_.Put('}');
  }

  // The comma after an item, if one goes before, and in the pretty form the break of the line.
  void NextLine(bool comma, std::size_t depth) {
    // Blanks come in chunks of a fixed size, a store each, however few of them are kept.
    constexpr std::size_t kChunk = 16;
    const std::size_t blanks = 2 * depth;
    char* to = out_.Room(2 + blanks + kChunk);
    if (comma) *to++ = ',';
    if (pretty_) {
      *to++ = '\n';
      for (std::size_t done = 0; done < blanks; done += kChunk) std::memset(to + done, ' ', kChunk);
      to += blanks;
    }
    out_.Advance(to);
  }

  TextSink& out_;
  bool pretty_;
};

}  // namespace

std::string Json::Dump(bool pretty) const {
  TextSink sink;
  JsonWriter(sink, pretty).Value(*this, 0);
  return sink.Take();
}

}  // namespace kestrelon

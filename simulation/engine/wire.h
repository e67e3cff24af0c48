// The binary form in which the bench's programs exchange what the engine holds.
//
// Integers are little endian; texts are counted UTF-16, bytes and lists are counted with 32 bits.
// The reader believes no count before it has seen the bytes: whatever it is given, it never reads
// outside of them and never reserves more than a small multiple of their number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/wfp_records.h"

namespace simulation {

using kestrelon::Guid;
using kestrelon::platform::Bytes;
using kestrelon::platform::Condition;
using kestrelon::platform::Filter;
using kestrelon::platform::Provider;
using kestrelon::platform::Sublayer;
using kestrelon::platform::Value;

// Appends to a buffer that the caller keeps and may reuse.
class WireWriter {
 public:
  explicit WireWriter(Bytes& out) : out_(out) {}

  // Write integers of their width.
  void U8(std::uint8_t value) { out_.push_back(value); }
  void U16(std::uint16_t value) { Integer(value, 2); }
  void U32(std::uint32_t value) { Integer(value, 4); }
  void U64(std::uint64_t value) { Integer(value, 8); }

  // Writes bytes without a count.
  void Raw(const std::uint8_t* data, std::size_t size) {
    out_.insert(out_.end(), data, data + size);
  }
  // Writes a count and the bytes.
  void Blob(const Bytes& bytes);
  // Writes a text; a wide unit above 16 bits becomes a surrogate pair.
  void Text(std::wstring_view text);
  void Key(const Guid& guid);
  void OptionalKey(const std::optional<Guid>& guid);

 private:
  void Integer(std::uint64_t value, int bytes);

  Bytes& out_;
};

// Reads what a WireWriter wrote. After the first read past the end or of a malformed value every
// further read gives zero or nothing and ok() is false, so that a caller checks once, at the end.
class WireReader {
 public:
  WireReader() = default;
  WireReader(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  std::uint8_t U8() { return static_cast<std::uint8_t>(Integer(1)); }
  std::uint16_t U16() { return static_cast<std::uint16_t>(Integer(2)); }
  std::uint32_t U32() { return static_cast<std::uint32_t>(Integer(4)); }
  std::uint64_t U64() { return Integer(8); }

  // Copies `size` bytes to `out`; leaves `out` alone if there are fewer.
  void Raw(std::uint8_t* out, std::size_t size);
  Bytes Blob();
  std::wstring Text();
  Guid Key();
  std::optional<Guid> OptionalKey();

  // The count of a list whose members take at least `smallest` bytes each; 0, and a failure, if
  // that many cannot follow.
  std::size_t Count(std::size_t smallest);

  // Gives up: for a caller who finds a value out of its set.
  void Fail();

  bool ok() const { return ok_; }
  // Whether all was read, and without a failure.
  bool Finished() const { return ok_ && left_ == 0; }

 private:
  std::uint64_t Integer(std::size_t bytes);
  bool Need(std::size_t bytes);

  const std::uint8_t* at_ = nullptr;
  std::size_t left_ = 0;
  bool ok_ = true;
};

// The records of the filtering platform. What the Take functions give after a failure (reader.ok())
// is a valid record of no meaning.
void Put(WireWriter& writer, const Value& value);
void Put(WireWriter& writer, const Filter& filter);
void Put(WireWriter& writer, const Provider& provider);
void Put(WireWriter& writer, const Sublayer& sublayer);
Value TakeValue(WireReader& reader);
Filter TakeFilter(WireReader& reader);
Provider TakeProvider(WireReader& reader);
Sublayer TakeSublayer(WireReader& reader);

// The least bytes that a filter and a condition take: what a count of them must be followed by.
inline constexpr std::size_t kSmallestCondition = 16 + 4 + 1;
inline constexpr std::size_t kSmallestFilter = 16 + 4 + 4 + 4 + 1 + 16 + 16 + 1 + 4 + 4 + 8;

}  // namespace simulation

// The one JSON value of the product: configuration files, pipe frames, events, status, manifests.
//
// A Json is a plain value, copied and moved as a whole. An object keeps its members in the order in
// which they were added, because that order is part of the written form, and is searched from the
// front: the objects here are small. Text is UTF-8 and not validated. A value takes 16 bytes; texts
// of up to 14 bytes, which is nearly every key, lie inside it.
//
// No locks: one thread at a time, but for constant values, which any number may read.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace kestrelon {

class Json {
 public:
  enum class Kind : std::uint8_t { kNull, kBoolean, kNumber, kString, kArray, kObject };

  constexpr Json() noexcept : data_{.brief = {Kind::kNull, 0, {}}} {}
  // Conversions from what a value can hold; they are implicit so that members read as assignments.
  // NOLINTBEGIN(google-explicit-constructor)
  template <std::same_as<bool> T>  // exactly bool: a pointer must not become one
  Json(T value) noexcept : data_{.brief = {Kind::kBoolean, value, {}}} {}
  template <std::integral T>
  requires(!std::same_as<T, bool> && sizeof(T) >= 4 && (std::is_signed_v<T> || sizeof(T) < 8) &&
           !std::same_as<T, wchar_t> && !std::same_as<T, char32_t>) Json(T value)
  noexcept : data_{.number = {Kind::kNumber, 1, {.integer = value}}} {}
  // A counter: exact up to the largest signed value, above that the nearest floating number.
  template <std::unsigned_integral T>
  requires(sizeof(T) == 8) Json(T value)
  noexcept
      : Json(value <= INT64_MAX ? Json(static_cast<std::int64_t>(value))
                                : FromFloating(static_cast<double>(value))) {}
  Json(const char* text) : Json(std::string_view(text == nullptr ? "" : text)) {}
  Json(std::string_view text);
  Json(const std::string& text) : Json(std::string_view(text)) {}
  Json(std::wstring_view text);
  Json(const std::wstring& text) : Json(std::wstring_view(text)) {}
  Json(const wchar_t* text) : Json(std::wstring_view(text)) {}
  // NOLINTEND(google-explicit-constructor)

  static Json Array();
  static Json Object();

  Json(const Json& other);
  Json(Json&& other) noexcept : data_(other.data_) { other.data_ = Json().data_; }
  Json& operator=(Json other) noexcept {
    std::swap(data_, other.data_);
    return *this;
  }
  ~Json() {
    if (OwnsHeap()) Release();
  }

  Kind kind() const { return data_.brief.kind; }
  bool IsNull() const { return kind() == Kind::kNull; }
  bool IsObject() const { return kind() == Kind::kObject; }
  bool IsArray() const { return kind() == Kind::kArray; }
  bool IsString() const { return kind() == Kind::kString; }

  // What a value of another kind answers to these is false, 0 or empty.
  bool boolean() const { return kind() == Kind::kBoolean && data_.brief.tag != 0; }
  // Whether a number is held exactly, as a signed 64-bit integer.
  bool is_integer() const { return kind() == Kind::kNumber && data_.number.tag != 0; }
  std::int64_t integer() const { return is_integer() ? data_.number.integer : 0; }
  double floating() const;
  // Valid until this value changes, moves or ends.
  std::string_view text() const {
    if (!IsString()) return {};
    if (data_.brief.tag == kOnHeap) return {data_.heap.bytes, data_.heap.size};
    return {data_.brief.bytes, data_.brief.tag};
  }

  // A number without a fraction and of an absolute value below 9.2e18, however it is held.
  bool IsWholeNumber() const;
  // The text as a wide one, or `otherwise` when this is no string.
  std::wstring StringOr(std::wstring_view otherwise) const;

  // Elements of an array, members of an object; 0 for anything else.
  std::size_t size() const { return IsArray() || IsObject() ? data_.heap.size : 0; }
  // Element of an array; the shared null when out of range or when this is no array.
  const Json& At(std::size_t index) const {
    return IsArray() && index < size() ? data_.heap.items[index] : kSharedNull;
  }
  // Member of an object by position; an empty text and the shared null out of range.
  std::string_view KeyAt(std::size_t index) const {
    return IsObject() && index < size() ? data_.heap.items[2 * index].text() : std::string_view();
  }
  const Json& ValueAt(std::size_t index) const {
    return IsObject() && index < size() ? data_.heap.items[2 * index + 1] : kSharedNull;
  }

  // Member of an object; the shared null when there is none, so that look-ups can be chained.
  const Json& Get(std::string_view key) const;
  // Whether the member exists, be it null.
  bool Has(std::string_view key) const;

  // Member of an object, appended as null when new. Anything but an object becomes an empty object
  // first. The reference is good until the next member is added.
  Json& operator[](std::string_view key);
  // Appends an element. Anything but an array becomes an empty array first.
  void Append(Json value);

  // Parses strict JSON of at most 65 levels and 1,000,000 values. On failure `value` is untouched
  // and `error`, unless null, holds what was wrong. Safe on any bytes.
  [[nodiscard]] static bool Parse(std::string_view text, Json& value, std::string* error = nullptr);

  // The text of the value: without white space, or pretty with two blanks for each level.
  std::string Dump(bool pretty) const;

 private:
  friend class JsonParser;

  static constexpr std::size_t kBriefBytes = 14;
  // Never changed, and made without any start-up code: it serves from the first thread on.
  static const Json kSharedNull;
  // In the tag: text on the heap, or a block of items of exactly its size.
  static constexpr std::uint8_t kOnHeap = 0xFF;

  // All alternatives begin with the kind and a tag, whose meaning depends on the kind.
  struct Brief {  // null, boolean (tag: its value), short text (tag: its length)
    Kind kind;
    std::uint8_t tag;
    char bytes[kBriefBytes];
  };
  struct Number {  // tag: 1 for an integer
    Kind kind;
    std::uint8_t tag;
    union {
      std::int64_t integer;
      double floating;
    };
  };
  // Long text (tag: kOnHeap), array or object (tag: kOnHeap or the block's capacity as a power of
  // two). Items are the elements of an array, or keys and values of an object in turn.
  struct Heap {
    Kind kind;
    std::uint8_t tag;
    std::uint32_t size;
    union {
      char* bytes;
      Json* items;
    };
  };
  union Data {
    Brief brief;
    Number number;
    Heap heap;
  };

  static Json FromFloating(double value);
  // Takes the values out of a row of elements, or of keys and values in turn, into one container.
  static Json FromItems(Kind kind, Json* items, std::size_t count);

  bool OwnsHeap() const {
    return kind() > Kind::kString || (kind() == Kind::kString && data_.brief.tag == kOnHeap);
  }
  std::size_t slots() const { return IsObject() ? 2 * size() : size(); }
  const Json* Find(std::string_view key) const;
  void AddItems(Json* items, std::size_t count);
  void Release() noexcept;

  Data data_;
};

// The array of some items, of each what `make` gives.
template <typename Items, typename Make = std::identity>
Json JsonArray(const Items& items, const Make& make = {}) {
  Json array = Json::Array();
  for (const auto& item : items) array.Append(make(item));
  return array;
}

}  // namespace kestrelon

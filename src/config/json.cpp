#include "config/json.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include "base/text.h"

namespace kestrelon {
namespace {

// Largest absolute value that is taken for a whole number: safely inside 64 bits.
constexpr double kWholeNumberBound = 9.2e18;

Json* AllocateItems(std::size_t count) {
  return static_cast<Json*>(::operator new(count * sizeof(Json)));
}

// Moves values into raw memory and leaves raw memory behind. A value owns what it points at and is
// pointed at by nobody, so its bytes may go elsewhere.
void Relocate(const Json* from, std::size_t count, Json* to) noexcept {
  // NOLINTNEXTLINE(bugprone-undefined-memory-manipulation): moved as a whole, see above.
  if (count != 0) std::memcpy(static_cast<void*>(to), from, count * sizeof(Json));
}

std::uint32_t CheckedSize(std::size_t size) {
  if (size > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("Json");
  return static_cast<std::uint32_t>(size);
}

}  // namespace

constinit const Json Json::kSharedNull;

Json::Json(std::string_view text) : Json() {
  if (text.size() <= kBriefBytes) {
    data_.brief.kind = Kind::kString;
    data_.brief.tag = static_cast<std::uint8_t>(text.size());
    text.copy(data_.brief.bytes, text.size());
    return;
  }
  Heap heap{Kind::kString, kOnHeap, CheckedSize(text.size()), {.bytes = nullptr}};
  heap.bytes = static_cast<char*>(::operator new(text.size()));
  text.copy(heap.bytes, text.size());
  data_.heap = heap;
}

Json::Json(std::wstring_view text) : Json(std::string_view(Utf8FromWide(text))) {}

Json Json::Array() {
  return FromItems(Kind::kArray, nullptr, 0);
}

Json Json::Object() {
  return FromItems(Kind::kObject, nullptr, 0);
}

Json Json::FromFloating(double value) {
  Json json;
  json.data_.number = Number{Kind::kNumber, 0, {.floating = value}};
  return json;
}

Json Json::FromItems(Kind kind, Json* items, std::size_t count) {
  Json json;
  Heap heap{
      kind, kOnHeap, CheckedSize(kind == Kind::kObject ? count / 2 : count), {.items = nullptr}};
  if (count != 0) {
    heap.items = AllocateItems(count);
    Relocate(items, count, heap.items);
    for (std::size_t i = 0; i < count; ++i) new (&items[i]) Json();
  }
  json.data_.heap = heap;
  return json;
}

Json::Json(const Json& other) : Json() {
  if (!other.OwnsHeap()) {
    data_ = other.data_;
  } else if (other.IsString()) {
    *this = Json(other.text());
  } else {
    const std::size_t count = other.slots();
    Json copy = FromItems(other.kind(), nullptr, 0);
    if (count != 0) copy.data_.heap.items = AllocateItems(count);
    for (std::size_t i = 0; i < count; ++i) {
      new (&copy.data_.heap.items[i]) Json(other.data_.heap.items[i]);
    }
    copy.data_.heap.size = other.data_.heap.size;
    *this = std::move(copy);
  }
}

void Json::Release() noexcept {
  if (IsString()) {
    ::operator delete(data_.heap.bytes);
    return;
  }
  const std::size_t count = slots();
  for (std::size_t i = 0; i < count; ++i) data_.heap.items[i].~Json();
  ::operator delete(data_.heap.items);
}

double Json::floating() const {
  if (kind() != Kind::kNumber) return 0;
  return is_integer() ? static_cast<double>(data_.number.integer) : data_.number.floating;
}

bool Json::IsWholeNumber() const {
  if (is_integer()) return true;
  if (kind() != Kind::kNumber) return false;
  const double value = data_.number.floating;
  return std::isfinite(value) && std::floor(value) == value && std::fabs(value) < kWholeNumberBound;
}

std::wstring Json::StringOr(std::wstring_view otherwise) const {
  return IsString() ? WideFromUtf8(text()) : std::wstring(otherwise);
}

const Json* Json::Find(std::string_view key) const {
  if (!IsObject()) return nullptr;
  const std::size_t count = slots();
  for (std::size_t i = 0; i < count; i += 2) {
    if (data_.heap.items[i].text() == key) return &data_.heap.items[i + 1];
  }
  return nullptr;
}

const Json& Json::Get(std::string_view key) const {
  const Json* value = Find(key);
  return value == nullptr ? kSharedNull : *value;
}

bool Json::Has(std::string_view key) const {
  return Find(key) != nullptr;
}

Json& Json::operator[](std::string_view key) {
  if (const Json* value = Find(key)) {
    return const_cast<Json&>(*value);  // found inside this value, which is not constant
  }
  Json member[] = {Json(key), Json()};  // before the text that `key` may be a view of goes away
  if (!IsObject()) *this = Object();
  AddItems(member, 2);
  return data_.heap.items[slots() - 1];
}

void Json::Append(Json value) {
  if (!IsArray()) *this = Array();
  AddItems(&value, 1);
}

// Takes `count` items to the end of the block: one element, or one key and value.
void Json::AddItems(Json* items, std::size_t count) {
  Heap& heap = data_.heap;
  const std::size_t used = slots();
  const std::size_t capacity = heap.tag == kOnHeap ? used : std::size_t{1} << heap.tag;
  const std::uint32_t size = CheckedSize(std::size_t{heap.size} + 1);
  if (used + count > capacity) {
    const std::size_t larger = std::bit_ceil(used + count);
    Json* block = AllocateItems(larger);
    Relocate(heap.items, used, block);
    ::operator delete(heap.items);
    heap.items = block;
    heap.tag = static_cast<std::uint8_t>(std::countr_zero(larger));
  }
  for (std::size_t i = 0; i < count; ++i) new (&heap.items[used + i]) Json(std::move(items[i]));
  heap.size = size;
}

}  // namespace kestrelon

#include "simulation/bench/output_block.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

namespace simulation {

// The head of a chunk; its room follows.
struct Chunk {
  std::uint64_t mark = 0;
  Chunk* next = nullptr;
  std::size_t used = 0;
  std::size_t room = 0;
};

namespace {

constexpr std::uint64_t kFirstChunk = 0x314B434F4C425746;    // "FWBLOCK1"
constexpr std::uint64_t kFurtherChunk = 0x324B434F4C425746;  // "FWBLOCK2"
constexpr std::size_t kAlignment = alignof(std::max_align_t);
constexpr std::size_t kLeastRoom = 4096;
constexpr std::size_t kMostSpareRoom = 256u << 10;
static_assert(sizeof(Chunk) % kAlignment == 0);

void FreeChain(Chunk* chunk) {
  while (chunk != nullptr) {
    Chunk* const next = chunk->next;
    chunk->mark = 0;
    std::free(chunk);
    chunk = next;
  }
}

}  // namespace

OutputBlock::~OutputBlock() {
  FreeChain(first_);
}

void* OutputBlock::Allocate(std::size_t size) {
  size = std::max<std::size_t>(size + kAlignment - 1, kAlignment) / kAlignment * kAlignment;
  if (last_ == nullptr || last_->room - last_->used < size) {
    // Each chunk is twice the last: a single small answer stays small, a listing takes few.
    const std::size_t spare =
        last_ == nullptr ? kLeastRoom : std::min(last_->room * 2, kMostSpareRoom);
    const std::size_t room = std::max(size, spare);
    void* const memory = std::calloc(1, sizeof(Chunk) + room);
    if (memory == nullptr) throw std::bad_alloc();
    Chunk* const chunk =
        new (memory) Chunk{first_ == nullptr ? kFirstChunk : kFurtherChunk, nullptr, 0, room};
    (last_ == nullptr ? first_ : last_->next) = chunk;
    last_ = chunk;
  }
  auto* const begin = reinterpret_cast<std::uint8_t*>(last_ + 1) + last_->used;
  last_->used += size;
  return begin;
}

void* OutputBlock::Release() {
  last_ = nullptr;
  return std::exchange(first_, nullptr) + 1;
}

void FreeOutput(void* first_piece) {
  if (first_piece == nullptr) return;
  Chunk* const chunk = static_cast<Chunk*>(first_piece) - 1;
  if (chunk->mark != kFirstChunk) {
    std::fputs("fwpuclnt bench: freeing memory that is no answer of this library\n", stderr);
    std::abort();
  }
  FreeChain(chunk);
}

}  // namespace simulation

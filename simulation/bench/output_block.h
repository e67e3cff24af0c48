// Memory that the library hands out and takes back as one thing, however many pieces it is.
#pragma once

#include <cstddef>

namespace simulation {

// Builds one answer of the library: pieces are taken from a chain of chunks, and the first piece
// stands for the whole chain when it is given back.
class OutputBlock {
 public:
  OutputBlock() = default;
  ~OutputBlock();
  OutputBlock(const OutputBlock&) = delete;
  OutputBlock& operator=(const OutputBlock&) = delete;

  // Zeroed room for `count` of T, aligned for any of the platform's structures.
  template <typename T>
  T* New(std::size_t count = 1) {
    return static_cast<T*>(Allocate(count * sizeof(T)));
  }

  // The first piece; the caller owns the chain now and gives it back to FreeOutput.
  void* Release();

 private:
  void* Allocate(std::size_t size);

  struct Chunk* first_ = nullptr;
  Chunk* last_ = nullptr;
};

// Frees what Release gave; null is allowed. A pointer that is no first piece ends the process, as
// it would ruin the heap of a caller of the real library.
void FreeOutput(void* first_piece);

}  // namespace simulation

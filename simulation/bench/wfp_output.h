// From records to the structures of the platform's interface: what the library's calls answer.
#pragma once

#include <windows.h>

#include <fwpmu.h>

#include <vector>

#include "simulation/bench/output_block.h"
#include "simulation/engine/wire.h"

namespace simulation {

GUID NativeOf(const Guid& guid);

// Fill `native`, which is zeroed, with all that it points at taken from the block.
void Fill(OutputBlock& block, const Provider& record, FWPM_PROVIDER0& native);
void Fill(OutputBlock& block, const Sublayer& record, FWPM_SUBLAYER0& native);
void Fill(OutputBlock& block, const Filter& record, FWPM_FILTER0& native);

// An answer of one structure, to be freed by FreeOutput.
template <typename Native, typename Record>
Native* AnswerOf(const Record& record) {
  OutputBlock block;
  Native* const native = block.New<Native>();
  Fill(block, record, *native);
  return static_cast<Native*>(block.Release());
}

// An answer that is an array of pointers, with the structures in the same block.
FWPM_FILTER0** AnswerOf(const std::vector<Filter>& records);
FWP_BYTE_BLOB* AnswerOf(const Bytes& bytes);

// An answer of one number.
FWP_VALUE0* AnswerOf(std::uint32_t number);

// What is told of a layer: how it is known, and neither its names nor its fields.
FWPM_LAYER0* AnswerOfLayer(const GUID& key, std::uint16_t id);

}  // namespace simulation

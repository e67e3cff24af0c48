// From the records of the rule book to filters in the engine.
#pragma once

#include <string>
#include <vector>

#include "filtering/filter_writer.h"

namespace kestrelon {

// What the running transaction adds, and where the text of a failure goes.
struct AddContext {
  platform::EngineHandle engine = 0;  // inside a write transaction
  std::vector<Guid>& added_keys;      // in the order of adding
  FilterTagTable& tags;               // what the added ids mean
  std::wstring& error;
};

// Gives the record a fresh key, adds it locked, and notes key and tag in the context. False with
// the context's error set when the engine refuses; the caller then aborts.
[[nodiscard]] bool AddFilter(AddContext& context, platform::Filter& filter, FilterTag& tag);

// A sink that adds each record; the context must outlive it.
[[nodiscard]] FilterSink AddingSink(AddContext& context);

}  // namespace kestrelon

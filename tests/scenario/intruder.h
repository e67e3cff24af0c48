// Somebody else with a session of LocalSystem's, who tampers with the product's filters.
#pragma once

#include "platform/wfp.h"
#include "tests/scenario/world.h"

namespace kestrelon::test {

class Intruder {
 public:
  Intruder();
  ~Intruder();
  Intruder(const Intruder&) = delete;
  Intruder& operator=(const Intruder&) = delete;

  // Of the product's regular filters, the one with the lowest key; there must be one.
  platform::Filter FirstFilter();
  // One that lets everything out, in the product's sublayer, of no provider.
  static platform::Filter ForeignFilter();

  void Delete(const Guid& key);
  void Add(const platform::Filter& filter);
  void DeleteEverything(World& world);
  // Makes the sublayer anew, below others.
  void Demote(World& world);

 private:
  platform::EngineHandle session_ = 0;
};

}  // namespace kestrelon::test

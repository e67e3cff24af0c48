// The filters that the kernel enforces, and arbitration among them.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <set>

#include "simulation/engine/condition_match.h"
#include "simulation/engine/connection.h"
#include "simulation/engine/layer_fields.h"

namespace simulation {

// A filter in the form in which it is enforced; never changed once made.
struct EnforcedFilter {
  std::shared_ptr<const platform::Filter> record;
  std::uint16_t sublayer_weight = 0;
  std::uint64_t effective_weight = 0;
  ConditionGroups conditions;

  [[nodiscard]] bool permits() const { return record->action == platform::kActionPermit; }
  // A block is always hard, a permit only with its action right cleared.
  [[nodiscard]] bool hard() const {
    return !permits() || (record->flags & platform::kFilterClearActionRight) != 0;
  }
};

using EnforcedFilterPtr = std::shared_ptr<const EnforcedFilter>;

// Makes the enforced form of a filter that ValidateFilter passed.
[[nodiscard]] EnforcedFilterPtr MakeEnforced(platform::Filter record,
                                             std::uint16_t sublayer_weight);

class KernelFilters {
 public:
  void Add(const EnforcedFilterPtr& filter);
  void Remove(const EnforcedFilterPtr& filter);
  void Clear();

  // Lets every sublayer speak, from the highest weight down, and arbitrates.
  [[nodiscard]] Verdict Classify(const Connection& connection) const;

 private:
  // Sublayers from the highest weight down, filters in each in the order of evaluation.
  struct EvaluationOrder {
    bool operator()(const EnforcedFilterPtr& a, const EnforcedFilterPtr& b) const;
  };
  using Ordered = std::set<EnforcedFilterPtr, EvaluationOrder>;

  std::array<Ordered, kLayerCount> layers_;
};

}  // namespace simulation

#include "simulation/engine/kernel_filters.h"

#include <tuple>
#include <utility>

#include "simulation/engine/filter_rules.h"

namespace simulation {
namespace {

// Among filters of one weight; the platform promises no order. Undocumented: here what blocks more
// firmly goes first.
int FirmnessRank(const EnforcedFilter& filter) {
  if (!filter.permits()) return 0;
  return filter.hard() ? 2 : 1;
}

// Whether it makes a difference which of two filters of one weight decides.
bool Disagree(const EnforcedFilter& a, const EnforcedFilter& b) {
  return a.permits() != b.permits() || a.hard() != b.hard();
}

// Lets the sublayer's result change what the higher ones said.
void Arbitrate(const SublayerVerdict& result, Verdict& verdict, bool& hard) {
  if (verdict.filter != nullptr && hard) return;
  // Of several permits the event names the highest sublayer's.
  if (verdict.filter == nullptr || result.permit != verdict.permit) {
    verdict.permit = result.permit;
    verdict.filter = result.filter;
  }
  hard = result.hard;
}

}  // namespace

EnforcedFilterPtr MakeEnforced(platform::Filter record, std::uint16_t sublayer_weight) {
  auto filter = std::make_shared<EnforcedFilter>();
  filter->sublayer_weight = sublayer_weight;
  filter->effective_weight = EffectiveWeight(record);
  filter->conditions = CompileConditions(record);
  filter->record = std::make_shared<const platform::Filter>(std::move(record));
  return filter;
}

bool KernelFilters::EvaluationOrder::operator()(const EnforcedFilterPtr& a,
                                                const EnforcedFilterPtr& b) const {
  const auto order = [](const EnforcedFilter& f) {
    return std::make_tuple(UINT16_MAX - f.sublayer_weight, f.record->sublayer,
                           UINT64_MAX - f.effective_weight, FirmnessRank(f), f.record->id);
  };
  return order(*a) < order(*b);
}

void KernelFilters::Add(const EnforcedFilterPtr& filter) {
  if (const Layer* layer = FindLayer(filter->record->layer)) layers_[layer->index].insert(filter);
}

void KernelFilters::Remove(const EnforcedFilterPtr& filter) {
  if (const Layer* layer = FindLayer(filter->record->layer)) layers_[layer->index].erase(filter);
}

void KernelFilters::Clear() {
  for (Ordered& layer : layers_) layer.clear();
}

Verdict KernelFilters::Classify(const Connection& connection) const {
  Verdict verdict;
  const Layer* layer = FindLayer(connection.layer);
  if (layer == nullptr) return verdict;
  const Subject subject(connection);
  const EnforcedFilter* decided = nullptr;  // of the current sublayer
  bool hard = false;
  for (const EnforcedFilterPtr& filter : layers_[layer->index]) {
    const bool same_sublayer =
        decided != nullptr && decided->record->sublayer == filter->record->sublayer;
    // After the sublayer's decision only its ties are of interest.
    if (same_sublayer &&
        (decided->effective_weight != filter->effective_weight || !Disagree(*decided, *filter))) {
      continue;
    }
    if (!Matches(filter->conditions, subject)) continue;
    if (same_sublayer) {
      verdict.tied_conflict = true;
      continue;
    }
    decided = filter.get();
    const SublayerVerdict result{.sublayer = filter->record->sublayer,
                                 .permit = filter->permits(),
                                 .hard = filter->hard(),
                                 .filter = filter->record};
    verdict.sublayers.push_back(result);
    Arbitrate(result, verdict, hard);
  }
  return verdict;
}

}  // namespace simulation

#include "filtering/filter_audit.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <vector>

#include "base/format.h"
#include "base/text.h"
#include "filtering/boot_filters.h"
#include "filtering/filter_keys.h"
#include "filtering/filter_signature.h"
#include "filtering/read_filters.h"
#include "platform/wfp.h"

namespace kestrelon {
namespace {

// Holds what the engine shows against the record, filter by filter as they come: an audit runs
// every few seconds, and a second table of all signatures would cost more than the comparing.
class RecordComparison {
 public:
  // The record must outlive this, unchanged.
  explicit RecordComparison(const FilterRecordTable& record) {
    recorded_.reserve(record.size());
    for (const auto& [key, signature] : record) recorded_.push_back({key, &signature});
  }

  // Takes in a filter that is present. One that comes again counts once, as it came last.
  void Take(const platform::Filter& filter) {
    const auto found = std::lower_bound(
        recorded_.begin(), recorded_.end(), filter.key,
        [](const Recorded& recorded, const Guid& key) { return recorded.key < key; });
    if (found == recorded_.end() || found->key != filter.key) {
      strangers_.insert(filter.key);
      return;
    }
    signature_.clear();
    AppendFilterSignature(filter, signature_);
    found->state = signature_ == *found->signature ? State::kSame : State::kModified;
  }

  // False with the first difference in `reason`: another number, or else the first filter of the
  // record that is not there or not the same.
  bool Agrees(std::wstring& reason) const {
    const std::size_t present = PresentCount();
    if (present != recorded_.size()) {
      reason = Format(L"%zu filters present, %zu expected", present, recorded_.size());
      return false;
    }
    const auto found = std::find_if(recorded_.begin(), recorded_.end(),
                                    [](const Recorded& r) { return r.state != State::kSame; });
    if (found == recorded_.end()) return true;
    const std::wstring key = WideFromUtf8(GuidText(found->key));
    reason = found->state == State::kMissing ? Format(L"filter %s is missing", key)
                                             : Format(L"filter %s was modified", key);
    return false;
  }

 private:
  enum class State : std::uint8_t { kMissing, kModified, kSame };
  struct Recorded {
    Guid key;
    const std::string* signature = nullptr;
    State state = State::kMissing;
  };

  std::size_t PresentCount() const {
    const auto missing = std::count_if(recorded_.begin(), recorded_.end(), [](const Recorded& r) {
      return r.state == State::kMissing;
    });
    return recorded_.size() - static_cast<std::size_t>(missing) + strangers_.size();
  }

  std::vector<Recorded> recorded_;  // in key order
  std::set<Guid> strangers_;        // present but not recorded
  std::string signature_;           // room for the one that is compared
};

// A sublayer that is gone or demoted would leave the filters in it without a say.
bool SublayerStands(FilterEngine& engine, std::wstring& reason) REQUIRES(engine.EngineGuard) {
  platform::Sublayer sublayer;
  if (platform::GetSublayer(engine.handle, SubLayerKey, sublayer) != platform::kSuccess) {
    reason = L"the Kestrelon sublayer is missing";
    return false;
  }
  if (sublayer.weight == kSublayerWeight) return true;
  reason = Format(L"sublayer priority changed to %u", std::uint32_t{sublayer.weight});
  return false;
}

bool BootFiltersStand(FilterEngine& engine, std::wstring& reason) REQUIRES(engine.EngineGuard) {
  if (engine.BootExpected < 0) return true;
  const int present = CountBootFilters(engine);
  if (present == engine.BootExpected) return true;
  reason = Format(L"%d boot-time filters present, %d expected", present, engine.BootExpected);
  return false;
}

}  // namespace

AuditResult FilterAudit(FilterEngine& engine, std::wstring& reason) {
  GuardLock lock(engine.EngineGuard);
  if (engine.handle == 0) return AuditResult::kEngineLost;
  RecordComparison comparison(engine.FilterRecord);
  const auto take = [&comparison](const platform::Filter& filter) { comparison.Take(filter); };
  std::wstring error;  // the loss is told, not how it showed
  if (!VisitFilters(engine, take, error)) return AuditResult::kEngineLost;
  const bool clean = comparison.Agrees(reason) && SublayerStands(engine, reason) &&
                     BootFiltersStand(engine, reason);
  return clean ? AuditResult::kClean : AuditResult::kDiffers;
}

}  // namespace kestrelon

#include "filtering/read_filters.h"

#include <algorithm>
#include <utility>

#include "core/error_text.h"
#include "filtering/filter_keys.h"
#include "filtering/filter_signature.h"

namespace kestrelon {
namespace {

constexpr std::uint32_t kBatch = 512;

// Ends the enumeration with the scope.
struct Enumeration {
  platform::EngineHandle engine = 0;
  platform::EnumHandle handle = 0;

  explicit Enumeration(platform::EngineHandle session) : engine(session) {}
  ~Enumeration() {
    if (handle != 0) platform::CloseFilterEnum(engine, handle);
  }
  Enumeration(const Enumeration&) = delete;
  Enumeration& operator=(const Enumeration&) = delete;
};

// Boot-time filters are replaced and counted apart from the others.
bool IsRegularOwnFilter(const platform::Filter& filter) {
  if (filter.provider != ProviderKey && filter.sublayer != SubLayerKey) return false;
  if ((filter.flags & platform::kFilterBootTime) != 0) return false;
  return std::find(BootFilterKeys.begin(), BootFilterKeys.end(), filter.key) ==
         BootFilterKeys.end();
}

}  // namespace

bool VisitFilters(FilterEngine& engine, const std::function<void(const platform::Filter&)>& visit,
                  std::wstring& error) {
  Enumeration enumeration(engine.handle);
  platform::Code code = platform::OpenFilterEnum(engine.handle, enumeration.handle);
  if (code != platform::kSuccess) {
    error = L"FwpmFilterCreateEnumHandle0: " + ErrorText(code);
    return false;
  }
  std::vector<platform::Filter> batch;
  do {
    code = platform::NextFilters(engine.handle, enumeration.handle, kBatch, batch);
    if (code != platform::kSuccess) {
      error = L"FwpmFilterEnum0: " + ErrorText(code);
      return false;
    }
    for (const platform::Filter& filter : batch) {
      if (IsRegularOwnFilter(filter)) visit(filter);
    }
  } while (batch.size() == kBatch);
  return true;
}

bool ReadFilters(FilterEngine& engine, std::vector<Guid>& keys, std::wstring& error,
                 FilterRecordTable* signatures) {
  keys.clear();
  if (signatures != nullptr) signatures->clear();
  std::string signature;  // reused, so that what is kept has no spare room
  const auto take = [&](const platform::Filter& filter) {
    keys.push_back(filter.key);
    if (signatures == nullptr) return;
    signature.clear();
    AppendFilterSignature(filter, signature);
    signatures->insert_or_assign(filter.key, signature);
  };
  return VisitFilters(engine, take, error);
}

bool ReadRecord(FilterEngine& engine, const std::vector<Guid>& keys, FilterRecordTable& record,
                std::wstring& error) {
  std::vector<Guid> all;
  FilterRecordTable present;
  if (!ReadFilters(engine, all, error, &present)) return false;
  FilterRecordTable read;
  for (const Guid& key : keys) {
    if (auto filter = present.extract(key)) read.insert(std::move(filter));
  }
  record.swap(read);
  return true;
}

}  // namespace kestrelon

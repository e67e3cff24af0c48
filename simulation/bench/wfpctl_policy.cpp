// wfpctl's looks at the policy and its hands on it.
#include <windows.h>

#include <objbase.h>

#include <memory>

#include "base/format.h"
#include "base/text.h"
#include "platform/net_events.h"
#include "simulation/bench/wfp_input.h"
#include "simulation/bench/wfpctl_commands.h"
#include "simulation/bench/wfpctl_connection.h"
#include "simulation/bench/wfpctl_text.h"

namespace simulation {
namespace {

using kestrelon::Format;
using kestrelon::platform::kSuccess;

constexpr std::uint32_t kFiltersAtATime = 1000;
// The largest weight that names a range; greater ones are weights in full.
constexpr std::uint64_t kLastWeightRange = 15;

Code OpenSession(BenchCaller caller, std::unique_ptr<EngineClient>& client) {
  return EngineClient::Open({.caller = caller, .name = L"wfpctl"}, client);
}

// Calls `visit` for each filter that the session may read.
template <typename Visit>
Code ForEachFilter(EngineClient& client, const Visit& visit) {
  std::uint64_t enumeration = 0;
  if (const Code code = client.OpenEnum(enumeration)) return code;
  std::vector<Filter> filters;
  do {
    if (const Code code = client.NextFilters(enumeration, kFiltersAtATime, filters)) return code;
    for (const Filter& filter : filters) visit(filter);
  } while (filters.size() == kFiltersAtATime);
  return client.CloseEnum(enumeration);
}

// Runs `change` in a transaction.
template <typename Change>
Code InTransaction(EngineClient& client, const Change& change) {
  if (const Code code = client.Begin(0)) return code;
  if (const Code code = change()) {
    (void)client.Abort();
    return code;
  }
  return client.Commit();
}

// Deletes each filter for which `matches` holds, in the transaction of the caller.
template <typename Matches>
Code DeleteFilters(EngineClient& client, const Matches& matches, std::size_t& deleted) {
  std::vector<Guid> keys;
  const Code listed = ForEachFilter(client, [&](const Filter& filter) {
    if (matches(filter)) keys.push_back(filter.key);
  });
  if (listed != kSuccess) return listed;
  for (const Guid& key : keys) {
    if (const Code refused = client.Delete(TargetKind::kFilter, key)) return refused;
  }
  deleted = keys.size();
  return kSuccess;
}

// Deletes all of a kind, or none, and prints their number.
template <typename Matches>
int DeleteAll(Arguments& arguments, std::wstring_view what, const Matches& matches) {
  const BenchCaller caller = TakeCaller(arguments);
  if (!arguments.Finished()) return kExitError;
  std::unique_ptr<EngineClient> client;
  if (const Code code = OpenSession(caller, client)) return ReportFailure(what, code);
  std::size_t deleted = 0;
  const Code code =
      InTransaction(*client, [&] { return DeleteFilters(*client, matches, deleted); });
  if (code != kSuccess) return ReportFailure(what, code);
  PrintLine(Format(L"%zu", deleted));
  return kExitDone;
}

Value WeightOf(std::uint64_t weight) {
  if (weight <= kLastWeightRange) return static_cast<std::uint8_t>(weight);
  return weight;
}

Guid NewKey() {
  GUID guid{};
  return SUCCEEDED(CoCreateGuid(&guid)) ? GuidOf(guid) : Guid{};
}

std::optional<Guid> TakeKeyOption(Arguments& arguments, std::wstring_view name) {
  const std::wstring text = arguments.Option(name);
  if (text.empty()) return std::nullopt;
  Guid key;
  if (!KeyOfText(text, key)) arguments.Fail(Format(L"%s: '%s' is no key", name, text));
  return key;
}

void TakeFilterFlags(Arguments& arguments, Filter& filter) {
  if (arguments.Flag(L"--persistent")) filter.flags |= kestrelon::platform::kFilterPersistent;
  if (arguments.Flag(L"--clear-action-right")) {
    filter.flags |= kestrelon::platform::kFilterClearActionRight;
  }
  if (arguments.Flag(L"--boot-time")) filter.flags |= kestrelon::platform::kFilterBootTime;
}

Filter TakeNewFilter(Arguments& arguments) {
  Filter filter;
  filter.name = arguments.Option(L"--name", L"foreign filter");
  const std::wstring layer = arguments.Option(L"--layer", L"connect-v4");
  if (!LayerOfName(layer, filter.layer)) {
    arguments.Fail(Format(L"--layer: '%s' is no layer", layer));
  }
  const std::wstring action = arguments.Option(L"--action", L"permit");
  if (action != L"permit" && action != L"block") {
    arguments.Fail(Format(L"--action: '%s' is not permit or block", action));
  }
  filter.action =
      action == L"permit" ? kestrelon::platform::kActionPermit : kestrelon::platform::kActionBlock;
  filter.weight = WeightOf(arguments.Number(L"--weight", UINT64_MAX, kLastWeightRange));
  filter.sublayer = TakeKeyOption(arguments, L"--sublayer").value_or(Guid{});
  filter.provider = TakeKeyOption(arguments, L"--provider");
  const std::optional<Guid> key = TakeKeyOption(arguments, L"--key");
  filter.key = key ? *key : NewKey();
  TakeFilterFlags(arguments, filter);
  filter.conditions = TakeConditions(arguments);
  return filter;
}

}  // namespace

int List(Arguments& arguments) {
  const BenchCaller caller = TakeCaller(arguments);
  if (!arguments.Finished()) return kExitError;
  std::unique_ptr<EngineClient> client;
  if (const Code code = OpenSession(caller, client)) return ReportFailure(L"list", code);
  const Code code =
      ForEachFilter(*client, [](const Filter& filter) { PrintLine(FilterLine(filter)); });
  return code == kSuccess ? kExitDone : ReportFailure(L"list", code);
}

int Count(Arguments& arguments) {
  const BenchCaller caller = TakeCaller(arguments);
  if (!arguments.Finished()) return kExitError;
  std::unique_ptr<EngineClient> client;
  if (const Code code = OpenSession(caller, client)) return ReportFailure(L"count", code);
  std::size_t count = 0;
  const Code code = ForEachFilter(*client, [&](const Filter&) { ++count; });
  if (code != kSuccess) return ReportFailure(L"count", code);
  PrintLine(Format(L"%zu", count));
  return kExitDone;
}

int Options(Arguments& arguments) {
  const BenchCaller caller = TakeCaller(arguments);
  if (!arguments.Finished()) return kExitError;
  std::unique_ptr<EngineClient> client;
  if (const Code code = OpenSession(caller, client)) return ReportFailure(L"options", code);
  std::uint32_t collect = 0;
  std::uint32_t keywords = 0;
  Code code = client->GetOption(kestrelon::platform::kCollectNetEvents, collect);
  if (code == kSuccess) {
    code = client->GetOption(kestrelon::platform::kNetEventKeywords, keywords);
  }
  if (code != kSuccess) return ReportFailure(L"options", code);
  PrintLine(Format(L"collect=%u keywords=0x%x", collect, keywords));
  return kExitDone;
}

int AddFilter(Arguments& arguments) {
  const Filter filter = TakeNewFilter(arguments);
  const BenchCaller caller = TakeCaller(arguments);
  if (!arguments.Finished()) return kExitError;
  std::unique_ptr<EngineClient> client;
  if (const Code code = OpenSession(caller, client)) return ReportFailure(L"add-filter", code);
  std::uint64_t id = 0;
  const Code code = client->AddFilter(filter, {}, id);
  if (code != kSuccess) return ReportFailure(L"add-filter", code);
  PrintLine(kestrelon::WideFromUtf8(kestrelon::GuidText(filter.key)));
  return kExitDone;
}

int SetWeight(Arguments& arguments) {
  const Guid key = TakeKey(arguments, L"the filter's key");
  const std::wstring text = arguments.Word(L"the weight");
  std::uint64_t weight = 0;
  if (!text.empty() && !NumberOfText(text, UINT64_MAX, weight)) {
    arguments.Fail(Format(L"'%s' is no weight", text));
  }
  const BenchCaller caller = TakeCaller(arguments);
  if (!arguments.Finished()) return kExitError;
  std::unique_ptr<EngineClient> client;
  if (const Code code = OpenSession(caller, client)) return ReportFailure(L"set-weight", code);
  // The engine changes no filter: it goes and comes again under the same key.
  const Code code = InTransaction(*client, [&] {
    Filter filter;
    std::uint64_t id = 0;
    if (const Code got = client->GetFilter(key, filter)) return got;
    if (const Code deleted = client->Delete(TargetKind::kFilter, key)) return deleted;
    filter.weight = WeightOf(weight);
    return client->AddFilter(filter, {}, id);
  });
  return code == kSuccess ? kExitDone : ReportFailure(L"set-weight", code);
}

int DeleteFilter(Arguments& arguments) {
  const Guid key = TakeKey(arguments, L"the key");
  const BenchCaller caller = TakeCaller(arguments);
  if (!arguments.Finished()) return kExitError;
  std::unique_ptr<EngineClient> client;
  if (const Code code = OpenSession(caller, client)) return ReportFailure(L"delete-filter", code);
  const Code code = client->Delete(TargetKind::kFilter, key);
  return code == kSuccess ? kExitDone : ReportFailure(L"delete-filter", code);
}

int DeleteSublayer(Arguments& arguments) {
  const Guid key = TakeKey(arguments, L"the key");
  const bool with_filters = arguments.Flag(L"--with-filters");
  const BenchCaller caller = TakeCaller(arguments);
  if (!arguments.Finished()) return kExitError;
  std::unique_ptr<EngineClient> client;
  if (const Code code = OpenSession(caller, client)) return ReportFailure(L"delete-sublayer", code);
  const Code code = InTransaction(*client, [&]() -> Code {
    std::size_t deleted = 0;
    const auto inside = [&](const Filter& filter) { return filter.sublayer == key; };
    const Code emptied = with_filters ? DeleteFilters(*client, inside, deleted) : kSuccess;
    return emptied != kSuccess ? emptied : client->Delete(TargetKind::kSublayer, key);
  });
  return code == kSuccess ? kExitDone : ReportFailure(L"delete-sublayer", code);
}

int DeleteBootFilters(Arguments& arguments) {
  return DeleteAll(arguments, L"delete-boot-filters", [](const Filter& filter) {
    return (filter.flags & kestrelon::platform::kFilterBootTime) != 0;
  });
}

int DeleteAllOfProvider(Arguments& arguments) {
  const Guid provider = TakeKey(arguments, L"the provider's key");
  return DeleteAll(arguments, L"delete-all-of-provider",
                   [&](const Filter& filter) { return filter.provider == provider; });
}

}  // namespace simulation

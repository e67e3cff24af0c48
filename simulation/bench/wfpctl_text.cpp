#include "simulation/bench/wfpctl_text.h"

#include <variant>

#include "base/format.h"
#include "base/text.h"
#include "simulation/bench/wfpctl_connection.h"

namespace simulation {
namespace {

using kestrelon::Format;
namespace codes = kestrelon::platform;

struct CodeMeaning {
  Code code;
  const wchar_t* meaning;
};
constexpr CodeMeaning kMeanings[] = {
    {codes::kAccessDenied, L"access denied"},
    {codes::kEndpointNotRegistered, L"BFE is not running"},
    {kServerUnavailable, L"the connection to BFE was lost"},
    {kCallFailed, L"the connection to BFE was lost during the call"},
    {kBadStubData, L"a message was malformed or too long"},
    {codes::kFilterNotFound, L"no such filter"},
    {codes::kLayerNotFound, L"no such layer"},
    {codes::kProviderNotFound, L"no such provider"},
    {codes::kSublayerNotFound, L"no such sublayer"},
    {codes::kObjectExists, L"there is one with this key"},
    {codes::kInUse, L"others refer to it"},
    {codes::kTransactionTimeout, L"another session's transaction did not end in time"},
    {codes::kLifetimeMismatch, L"it would outlive what it refers to"},
};

// Codes of the filtering platform are known by their hexadecimal form, system errors are not.
constexpr Code kFirstHexadecimal = 0x10000;

std::wstring ActionText(std::uint32_t action) {
  if (action == codes::kActionPermit) return L"permit";
  if (action == codes::kActionBlock) return L"block";
  return Format(L"action-0x%x", action);
}

}  // namespace

std::wstring WeightText(const Value& weight) {
  if (std::holds_alternative<std::monostate>(weight)) return L"auto";
  if (const auto* const small_weight = std::get_if<std::uint8_t>(&weight)) {
    return Format(L"%u", static_cast<std::uint32_t>(*small_weight));
  }
  if (const auto* const full = std::get_if<std::uint64_t>(&weight)) return Format(L"0x%llx", *full);
  return L"invalid";
}

std::wstring CodeText(Code code) {
  const std::wstring number =
      code < kFirstHexadecimal ? Format(L"error %u", code) : Format(L"error 0x%08X", code);
  for (const CodeMeaning& known : kMeanings) {
    if (known.code == code) return number + L" (" + known.meaning + L")";
  }
  return number;
}

std::wstring FilterLine(const Filter& filter) {
  return Format(L"%s %s weight=%s %s flags=0x%x conditions=%zu %s",
                kestrelon::WideFromUtf8(kestrelon::GuidText(filter.key)), LayerName(filter.layer),
                WeightText(filter.weight), ActionText(filter.action), filter.flags,
                filter.conditions.size(), filter.name);
}

}  // namespace simulation

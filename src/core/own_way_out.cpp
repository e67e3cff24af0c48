#include "core/own_way_out.h"

#include <utility>

#include "identity/paths.h"

namespace kestrelon {

void AppendOwnWayOut(const wchar_t* name, std::vector<RuleEntry>& rules) {
  constexpr std::uint32_t kTcp = 6;
  RuleEntry rule;
  rule.name = name;
  rule.direction = kDirectionOut;
  rule.protocol = kTcp;
  rule.remote_ports = L"443";
  rule.app = ExecutablePath();
  if (!rule.app.empty()) rules.push_back(std::move(rule));
}

}  // namespace kestrelon

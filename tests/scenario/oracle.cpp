#include "tests/scenario/oracle.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cwctype>
#include <optional>

namespace kestrelon::test {
namespace {

std::wstring Lower(std::wstring text) {
  for (wchar_t& c : text) c = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
  return text;
}

std::string Narrow(const std::wstring& text) {
  return {text.begin(), text.end()};
}

std::vector<std::wstring> Items(const std::wstring& text) {
  std::vector<std::wstring> items;
  std::wstring item;
  for (const wchar_t c : text + L",") {
    if (c != L',' && c != L' ' && c != L';') {
      item += c;
    } else if (!item.empty()) {
      items.push_back(item);
      item.clear();
    }
  }
  return items;
}

using Address = std::vector<std::uint8_t>;  // 4 or 16 bytes, network order

std::optional<Address> AddressOf(const std::wstring& text) {
  std::array<std::uint8_t, 16> bytes{};
  if (inet_pton(AF_INET, Narrow(text).c_str(), bytes.data()) == 1) {
    return Address(bytes.begin(), bytes.begin() + 4);
  }
  if (inet_pton(AF_INET6, Narrow(text).c_str(), bytes.data()) == 1) {
    return Address(bytes.begin(), bytes.end());
  }
  return std::nullopt;
}

bool SameLeadingBits(const Address& a, const Address& b, std::size_t bits) {
  for (std::size_t i = 0; i < bits; ++i) {
    const int shift = 7 - static_cast<int>(i % 8);
    if ((a[i / 8] >> shift & 1) != (b[i / 8] >> shift & 1)) return false;
  }
  return true;
}

// One item of an address text, such as "10.0.0.0/8", "1.2.3.4-1.2.3.9" or "fe80::1".
struct AddressItem {
  Address first;
  Address last;          // of a range; else empty
  std::size_t bits = 0;  // leading bits that must agree when there is no range

  bool Holds(const Address& address) const {
    if (first.size() != address.size()) return false;
    if (!last.empty()) return first <= address && address <= last;
    return SameLeadingBits(first, address, bits);
  }
};

AddressItem ItemOf(const std::wstring& text) {
  if (const std::size_t dash = text.find(L'-'); dash != std::wstring::npos) {
    return {*AddressOf(text.substr(0, dash)), *AddressOf(text.substr(dash + 1)), 0};
  }
  const std::size_t slash = text.find(L'/');
  const Address first = *AddressOf(text.substr(0, slash));
  const std::size_t bits =
      slash == std::wstring::npos ? first.size() * 8 : std::stoul(text.substr(slash + 1));
  return {first, {}, bits};
}

bool PortFits(const std::wstring& ports, std::uint16_t port) {
  if (ports.empty()) return true;
  const std::vector<std::wstring> items = Items(ports);
  return std::any_of(items.begin(), items.end(), [&](const std::wstring& item) {
    const std::size_t dash = item.find(L'-');
    const unsigned long low = std::stoul(item);
    const unsigned long high = dash == std::wstring::npos ? low : std::stoul(item.substr(dash + 1));
    return low <= port && port <= high;
  });
}

bool IsOneOf(const Attempt& attempt, const std::wstring& networks) {
  const std::vector<std::wstring> items = Items(networks);
  const Address address = *AddressOf(attempt.remote);
  return std::any_of(items.begin(), items.end(),
                     [&](const std::wstring& item) { return ItemOf(item).Holds(address); });
}

// Whether the rule names addresses and this is one of them, or names none at all. A rule whose only
// address is "$dns" without any server applies to nothing.
bool RemoteFits(const RuleEntry& rule, const OracleFacts& facts, const Attempt& attempt) {
  if (rule.remote.empty()) return true;
  std::wstring text;
  for (const std::wstring& item : Items(rule.remote)) {
    text += (item == L"$dns" ? facts.dns_servers : item) + L",";
  }
  return IsOneOf(attempt, text);
}

bool RuleFits(const RuleEntry& rule, const OracleFacts& facts, const Attempt& attempt) {
  if (!rule.enabled) return false;
  if (rule.direction == kDirectionOut && attempt.inbound) return false;
  if (rule.direction == kDirectionIn && !attempt.inbound) return false;
  if (rule.protocol != 0 && rule.protocol != attempt.protocol) return false;
  if (rule.protocol == 1 && attempt.family != 4) return false;
  if (rule.protocol == 58 && attempt.family != 6) return false;
  if (!rule.app.empty() && Lower(rule.app) != Lower(attempt.program)) return false;
  if (!rule.user.empty() &&
      std::find(attempt.users.begin(), attempt.users.end(), rule.user) == attempt.users.end()) {
    return false;
  }
  return RemoteFits(rule, facts, attempt) && PortFits(rule.remote_ports, attempt.remote_port) &&
         PortFits(rule.local_ports, attempt.local_port);
}

bool EnablesTheList(const Config& config) {
  return std::any_of(config.blocklists.begin(), config.blocklists.end(),
                     [](const std::wstring& id) { return Lower(id) == L"drop"; });
}

// The service's own way out to the feeds and to its updates.
bool FetchesForItself(const Config& config, const Attempt& attempt) {
  const bool fetches =
      (EnablesTheList(config) && config.blocklists_auto_update) || config.updates_auto_check;
  return fetches && !attempt.inbound && attempt.protocol == 6 && attempt.remote_port == 443 &&
         Lower(attempt.program) == L"c:\\program files\\kestrelon\\kestrelonsvc.exe";
}

// The private, link-local, multicast and broadcast addresses.
constexpr const wchar_t* kLan =
    L"10.0.0.0/8,172.16.0.0/12,192.168.0.0/16,169.254.0.0/16,224.0.0.0/4,255.255.255.255,"
    L"fe80::/10,fc00::/7,ff00::/8";

// Whether an item of a grant, "net:DIRECTION/PROTOCOL/PORT/lan", is about the attempt.
bool GrantItemFits(const std::wstring& item, const Attempt& attempt) {
  if (!item.starts_with(L"net:")) return false;
  const std::size_t protocol = item.find(L'/') + 1;
  const std::size_t port = item.find(L'/', protocol) + 1;
  const std::wstring direction = item.substr(4, protocol - 5);
  return direction != (attempt.inbound ? L"out" : L"in") &&
         std::stoul(item.substr(protocol)) == attempt.protocol &&
         std::stoul(item.substr(port)) == attempt.remote_port &&
         attempt.local_port == attempt.remote_port && IsOneOf(attempt, kLan);
}

// Whether the module's user has approved what it asks for, and it asks for this.
bool ModuleMay(const Config& config, const OracleFacts& facts, const Attempt& attempt) {
  if (facts.module_grant.empty() || Lower(attempt.program) != Lower(facts.module_file)) {
    return false;
  }
  const bool approved =
      std::any_of(config.modules.begin(), config.modules.end(), [&](const ModuleEntry& entry) {
        return entry.id == L"lan-messages" && entry.enabled && entry.grant == facts.module_grant;
      });
  std::wstring grant = facts.module_grant;
  std::replace(grant.begin(), grant.end(), L'|', L',');
  const std::vector<std::wstring> items = Items(grant);
  return approved && std::any_of(items.begin(), items.end(), [&](const std::wstring& item) {
           return GrantItemFits(item, attempt);
         });
}

enum class Standing { kAbsent, kAllowed, kBlocked, kHeld };

// What the entry says of its program, by what the program's file now is.
Standing StandingOf(const AppEntry& app, const KnownFile* file) {
  if (!app.allow) return Standing::kBlocked;
  if (file == nullptr) return Standing::kAllowed;
  if (!app.signer.empty()) {
    return file->signer == app.signer ? Standing::kAllowed : Standing::kHeld;
  }
  if (app.sha256.empty()) return Standing::kAllowed;  // learnt as it is
  if (std::find(app.sha256.begin(), app.sha256.end(), file->sha256) != app.sha256.end()) {
    return Standing::kAllowed;
  }
  return Standing::kHeld;
}

// A file whose hashes are listed is judged by them alone, be it signed or not.
const KnownFile* FileOf(const OracleFacts& facts, const std::wstring& path) {
  const auto found = facts.files.find(Lower(path));
  return found == facts.files.end() ? nullptr : &found->second;
}

Standing StandingFor(const AppEntry& app, const OracleFacts& facts, const Attempt& attempt) {
  const std::wstring path = Lower(app.path);
  if (path.starts_with(L"service:")) {
    const std::wstring name = path.substr(8);
    const auto service = facts.services.find(name);
    if (service == facts.services.end()) return Standing::kAbsent;
    const auto& users = attempt.users;
    if (Lower(service->second) != Lower(attempt.program)) return Standing::kAbsent;
    if (std::find(users.begin(), users.end(), facts.service_sids.at(name)) == users.end()) {
      return Standing::kAbsent;
    }
    const KnownFile* file = FileOf(facts, service->second);
    const bool held =
        app.allow && !app.signer.empty() && file != nullptr && file->signer != app.signer;
    if (held) return Standing::kHeld;
    return app.allow ? Standing::kAllowed : Standing::kBlocked;
  }
  if (path != Lower(attempt.program)) return Standing::kAbsent;
  return StandingOf(app, FileOf(facts, app.path));
}

}  // namespace

Answer Judge(const Config& config, const OracleFacts& facts, const Attempt& attempt,
             std::wstring& why) {
  const auto decide = [&](Answer answer, const std::wstring& text) {
    why = text;
    return answer;
  };
  if (!config.enabled) return decide(Answer::kPass, L"protection is off");

  bool held = false, blocked_rule = false, blocked_app = false, allowed = false;
  for (const AppEntry& app : config.apps) {
    const Standing standing = StandingFor(app, facts, attempt);
    held = held || standing == Standing::kHeld;
    blocked_app = blocked_app || standing == Standing::kBlocked;
    allowed = allowed || (standing == Standing::kAllowed && (app.inbound || !attempt.inbound));
  }
  for (const RuleEntry& rule : config.rules) {
    if (!RuleFits(rule, facts, attempt)) continue;
    blocked_rule = blocked_rule || !rule.allow;
    allowed = allowed || rule.allow;
  }

  const bool listed = IsOneOf(attempt, config.custom_blocklist) ||
                      (EnablesTheList(config) && IsOneOf(attempt, facts.listed_networks));
  allowed = allowed || FetchesForItself(config, attempt) || ModuleMay(config, facts, attempt);

  if (held) return decide(Answer::kBlocked, L"the program is held back");
  if (attempt.loopback && config.allow_loopback) return decide(Answer::kPass, L"loopback");
  if (listed) return decide(Answer::kBlocked, L"a blocklist names it");
  if (blocked_rule) return decide(Answer::kBlocked, L"a rule blocks it");
  if (blocked_app) return decide(Answer::kBlocked, L"the application is blocked");
  if (allowed) return decide(Answer::kPass, L"a rule or application allows it");
  return decide(Answer::kBlocked, L"nothing allows it");
}

}  // namespace kestrelon::test

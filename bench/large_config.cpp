#include "bench/large_config.h"

#include "base/format.h"

namespace kestrelon {

std::wstring AppPath(int i) {
  return Format(L"C:\\Program Files\\Vendor %d\\Application.exe", i);
}

Config ConfigOfNetworks(const ConfigSize& size) {
  Config config;
  for (int i = 0; i < size.rules; ++i) {
    RuleEntry rule;
    rule.name = Format(L"Rule number %d", i);
    rule.allow = i % 5 != 0;
    rule.direction = kDirectionBoth;
    rule.protocol = 6;
    rule.remote =
        Format(L"10.%d.%d.0/24, 2001:db8:%x::/48", i / 256, i % 256, static_cast<unsigned>(i));
    rule.remote_ports = L"443";
    if (i % 2 == 0) rule.app = AppPath(i % size.apps);
    config.rules.push_back(rule);
  }
  RuleEntry list;
  list.name = L"Networks";
  list.allow = false;
  list.direction = kDirectionBoth;
  for (int i = 0; i < size.networks; ++i) {
    list.remote += Format(L"%d.%d.%d.0/24, ", 20 + i / 65536, i / 256 % 256, i % 256);
  }
  config.rules.push_back(list);
  return config;
}

Config ConfigOfApps(const ConfigSize& size) {
  Config config;
  for (int i = 0; i < size.apps; ++i) {
    AppEntry app;
    app.path = Format(L"C:\\Program Files\\Vendor %d\\Product %d\\application.exe", i / 10, i);
    app.added = 134050000000000000 + i;
    app.signer = Format(L"Vendor %d Software Ltd.", i / 10);
    app.product = Format(L"Product %d", i);
    if (i % 4 == 0) app.sha256.push_back(Format(L"%064x", static_cast<unsigned>(i)));
    config.apps.push_back(app);
  }
  for (int i = 0; i < size.rules; ++i) {
    RuleEntry rule;
    rule.name = Format(L"Rule number %d", i);
    rule.allow = i % 3 != 0;
    rule.direction = static_cast<std::uint32_t>(i % 3);
    rule.protocol = i % 2 == 0 ? 6 : 17;
    rule.remote = Format(L"10.%d.%d.0/24, 192.168.%d.1-192.168.%d.99, fe80::%x/64", i / 250,
                         i % 250, i % 200, i % 200, static_cast<unsigned>(i));
    rule.remote_ports = L"80, 443, 8000-8100";
    rule.app = config.apps[static_cast<std::size_t>(i % size.apps)].path;
    config.rules.push_back(rule);
  }
  return config;
}

}  // namespace kestrelon

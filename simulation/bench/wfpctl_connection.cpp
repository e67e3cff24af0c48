#include "simulation/bench/wfpctl_connection.h"

#include <winsock2.h>

#include <ws2tcpip.h>

#include <algorithm>
#include <iterator>

#include "base/format.h"
#include "base/text.h"
#include "simulation/bench/app_id.h"

namespace simulation {
namespace {

using kestrelon::Format;
using kestrelon::WideFromUtf8;
using kestrelon::platform::kFieldAppId;
using kestrelon::platform::kFieldFlags;
using kestrelon::platform::kFieldProtocol;
using kestrelon::platform::kFieldRemoteAddress;
using kestrelon::platform::kFieldRemotePort;
using kestrelon::platform::kMatchEqual;
using kestrelon::platform::kMatchFlagsAllSet;

struct NamedProtocol {
  const wchar_t* name;
  std::uint8_t number;
};
constexpr NamedProtocol kProtocols[] = {{L"tcp", 6}, {L"udp", 17}, {L"icmp", 1}, {L"icmpv6", 58}};
constexpr std::uint8_t kIcmp = 1;
constexpr std::uint8_t kIcmpV6 = 58;
constexpr std::uint16_t kEchoRequest = 8;
constexpr std::uint16_t kEchoRequestV6 = 128;

// The machine's own end where nobody names one.
constexpr wchar_t kOwnAddressV4[] = L"192.0.2.10";
constexpr wchar_t kOwnAddressV6[] = L"2001:db8::10";
constexpr std::uint16_t kOwnPort = 49152;

struct NamedLayer {
  const wchar_t* name;
  Guid key;
};
constexpr NamedLayer kLayers[] = {
    {L"connect-v4", kestrelon::platform::kLayerConnectV4},
    {L"connect-v6", kestrelon::platform::kLayerConnectV6},
    {L"accept-v4", kestrelon::platform::kLayerRecvAcceptV4},
    {L"accept-v6", kestrelon::platform::kLayerRecvAcceptV6},
};

const Guid& LayerOf(bool inbound, bool v6) {
  return kLayers[(inbound ? 2 : 0) + (v6 ? 1 : 0)].key;
}

bool ProtocolOfText(const std::wstring& text, std::uint8_t& protocol) {
  for (const NamedProtocol& named : kProtocols) {
    if (text != named.name) continue;
    protocol = named.number;
    return true;
  }
  std::uint64_t number = 0;
  if (!NumberOfText(text, 255, number)) return false;
  protocol = static_cast<std::uint8_t>(number);
  return true;
}

std::uint8_t TakeProtocol(Arguments& arguments, const std::wstring& text) {
  std::uint8_t protocol = 0;
  if (!ProtocolOfText(text, protocol)) {
    arguments.Fail(
        Format(L"--protocol: '%s' is not tcp, udp, icmp, icmpv6 or a number to 255", text));
  }
  return protocol;
}

Address TakeAddress(Arguments& arguments, std::wstring_view name, std::wstring_view otherwise) {
  const std::wstring text = arguments.Option(name, otherwise);
  Address address;
  if (text.empty()) {
    arguments.Fail(Format(L"%s is missing", name));
  } else if (!AddressOfText(text, address)) {
    arguments.Fail(Format(L"%s: '%s' is no address", name, text));
  }
  return address;
}

Bytes AppIdOf(Arguments& arguments, const std::wstring& program) {
  if (program == L"System") return AppIdOfKernel();
  Bytes app_id;
  if (AppIdOfPath(program, app_id) != kestrelon::platform::kSuccess) {
    arguments.Fail(Format(L"--program: '%s' is no full path", program));
  }
  return app_id;
}

Bytes TakeSid(Arguments& arguments, std::wstring_view name, const std::wstring& text) {
  Bytes sid;
  if (!SidOfText(text, sid)) arguments.Fail(Format(L"%s: '%s' is no SID", name, text));
  return sid;
}

bool IsLoopback(const Address& address) {
  if (!address.v6) return address.v4_value >> 24 == 127;
  kestrelon::platform::ByteArray16 loopback{};
  loopback.back() = 1;
  return address.v6_value == loopback;
}

// Programs that do not say otherwise run as an ordinary user.
std::vector<Bytes> TakeUsers(Arguments& arguments) {
  std::vector<Bytes> sids;
  for (const std::wstring& text : arguments.Options(L"--user")) {
    sids.push_back(TakeSid(arguments, L"--user", text));
  }
  sids.push_back(TakeSid(arguments, L"--user", L"S-1-1-0"));
  return sids;
}

void TakePorts(Arguments& arguments, Connection& connection) {
  // In these layers the type of ICMP stands in the local port's place and the code in the other's.
  std::uint16_t local = kOwnPort;
  if (connection.protocol == kIcmp) local = kEchoRequest;
  if (connection.protocol == kIcmpV6) local = kEchoRequestV6;
  connection.local_port =
      static_cast<std::uint16_t>(arguments.Number(L"--local-port", 0xFFFF, local));
  connection.remote_port =
      static_cast<std::uint16_t>(arguments.Number(L"--remote-port", 0xFFFF, 0));
}

}  // namespace

bool AddressOfText(const std::wstring& text, Address& address) {
  in_addr v4{};
  in6_addr v6{};
  Address parsed;
  if (InetPtonW(AF_INET, text.c_str(), &v4) == 1) {
    parsed.v4_value = ntohl(v4.s_addr);
  } else if (InetPtonW(AF_INET6, text.c_str(), &v6) == 1) {
    parsed.v6 = true;
    std::copy(std::begin(v6.s6_addr), std::end(v6.s6_addr), parsed.v6_value.begin());
  } else {
    return false;
  }
  address = parsed;
  return true;
}

Connection TakeConnection(Arguments& arguments) {
  Connection connection;
  const std::wstring direction = arguments.Option(L"--direction", L"out");
  const bool inbound = direction == L"in";
  if (!inbound && direction != L"out") {
    arguments.Fail(Format(L"--direction: '%s' is not out or in", direction));
  }
  const std::wstring program = arguments.Option(L"--program");
  if (program.empty()) {
    arguments.Fail(L"--program is missing");
  } else {
    connection.app_id = AppIdOf(arguments, program);
  }
  connection.protocol = TakeProtocol(arguments, arguments.Option(L"--protocol", L"tcp"));
  TakePorts(arguments, connection);
  const Address remote = TakeAddress(arguments, L"--remote", L"");
  const Address local =
      TakeAddress(arguments, L"--local", remote.v6 ? kOwnAddressV6 : kOwnAddressV4);
  if (local.v6 != remote.v6) arguments.Fail(L"--local and --remote are of two families");
  connection.layer = LayerOf(inbound, remote.v6);
  connection.local_v4 = local.v4_value;
  connection.remote_v4 = remote.v4_value;
  connection.local_v6 = local.v6_value;
  connection.remote_v6 = remote.v6_value;
  connection.user_sids = TakeUsers(arguments);
  const std::wstring package = arguments.Option(L"--package");
  if (!package.empty()) connection.package_sid = TakeSid(arguments, L"--package", package);
  if (arguments.Flag(L"--loopback") || IsLoopback(remote)) {
    connection.flags |= kestrelon::platform::kConditionFlagLoopback;
  }
  return connection;
}

std::vector<Condition> TakeConditions(Arguments& arguments) {
  std::vector<Condition> conditions;
  for (const std::wstring& program : arguments.Options(L"--program")) {
    kestrelon::platform::ByteBlob blob{AppIdOf(arguments, program)};
    conditions.push_back({kFieldAppId, kMatchEqual, std::move(blob)});
  }
  for (const std::wstring& protocol : arguments.Options(L"--protocol")) {
    conditions.push_back({kFieldProtocol, kMatchEqual, TakeProtocol(arguments, protocol)});
  }
  for (const std::wstring& text : arguments.Options(L"--remote")) {
    Address address;
    if (!AddressOfText(text, address)) {
      arguments.Fail(Format(L"--remote: '%s' is no address", text));
    }
    conditions.push_back({kFieldRemoteAddress, kMatchEqual,
                          address.v6 ? Value(address.v6_value) : Value(address.v4_value)});
  }
  for (const std::wstring& text : arguments.Options(L"--remote-port")) {
    std::uint64_t port = 0;
    if (!NumberOfText(text, 0xFFFF, port)) {
      arguments.Fail(Format(L"--remote-port: '%s' is no port", text));
    }
    conditions.push_back({kFieldRemotePort, kMatchEqual, static_cast<std::uint16_t>(port)});
  }
  if (arguments.Flag(L"--loopback")) {
    conditions.push_back(
        {kFieldFlags, kMatchFlagsAllSet, kestrelon::platform::kConditionFlagLoopback});
  }
  return conditions;
}

std::wstring LayerName(const Guid& layer) {
  for (const NamedLayer& named : kLayers) {
    if (named.key == layer) return named.name;
  }
  return WideFromUtf8(kestrelon::GuidText(layer));
}

bool LayerOfName(const std::wstring& name, Guid& layer) {
  for (const NamedLayer& named : kLayers) {
    if (name != named.name) continue;
    layer = named.key;
    return true;
  }
  return KeyOfText(name, layer);
}

}  // namespace simulation

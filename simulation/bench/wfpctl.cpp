// wfpctl: the bench's hand. Puts connections to the engine, shows its filters, tampers with them.
//
// Results are lines on the output, in UTF-8; the exit code is 0 for a success or a permitted
// connection, 1 for a blocked one, 2 for an error, which is told on the error output.
#include <fcntl.h>
#include <io.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/format.h"
#include "base/text.h"
#include "simulation/bench/wfpctl_commands.h"
#include "simulation/bench/wfpctl_text.h"

namespace simulation {
namespace {

using kestrelon::Format;

struct NamedCommand {
  const wchar_t* name;
  Command run;
};
constexpr NamedCommand kCommands[] = {
    {L"connect", Connect},
    {L"batch", Batch},
    {L"list", List},
    {L"count", Count},
    {L"options", Options},
    {L"add-filter", AddFilter},
    {L"set-weight", SetWeight},
    {L"delete-filter", DeleteFilter},
    {L"delete-sublayer", DeleteSublayer},
    {L"delete-boot-filters", DeleteBootFilters},
    {L"delete-all-of-provider", DeleteAllOfProvider},
};

constexpr wchar_t kUsage[] =
    LR"(usage: wfpctl COMMAND ...

  connect CONNECTION       the verdict on a connection: "PERMIT weight=10 filter=NAME" or "BLOCK ..."
  batch FILE|-             a line for each line CONNECTION of a file, or at once of the input
  list                     every filter, boot-time ones too: key, layer, weight, action, flags, conditions, name
  count                    the number of filters
  options                  what is reported of connections: "collect=1 keywords=0x3"
  add-filter FILTER        adds a filter and prints its key
  set-weight KEY N         gives a filter another weight
  delete-filter KEY        deletes a filter
  delete-sublayer KEY [--with-filters]   deletes a sublayer, which else must be empty
  delete-boot-filters      deletes every boot-time filter and prints their number
  delete-all-of-provider KEY   deletes every filter of a provider and prints their number

CONNECTION
  --program PATH           a full path, or System for the kernel
  --remote ADDRESS         IPv4 or IPv6
  --direction out|in       out unless given
  --protocol tcp|udp|icmp|icmpv6|N   tcp unless given
  --remote-port N          0 unless given; the code of ICMP
  --local-port N           49152 unless given; the type of ICMP, echo request unless given
  --local ADDRESS          an address of the machine
  --user SID               of the program's user, groups and services; may be repeated
  --package SID            of the program's package
  --loopback               stays on the machine; understood for 127.0.0.0/8 and ::1

FILTER
  --sublayer KEY           the layer's default sublayer unless given
  --layer connect-v4|connect-v6|accept-v4|accept-v6|KEY   connect-v4 unless given
  --action permit|block    permit unless given
  --weight N               0 to 15, the ranges; greater ones in full; 15 unless given
  --name NAME  --key KEY  --provider KEY  --persistent  --boot-time  --clear-action-right
  --program, --protocol, --remote, --remote-port, --loopback   its conditions

All but connect and batch take --as system|administrator: the account to act for. Without it
the environment variable WFP_BENCH_CALLER counts; without that it is system.)";

int Run(std::vector<std::wstring> words) {
  if (words.empty()) {
    PrintError(kUsage);
    return kExitError;
  }
  const std::wstring name = words.front();
  words.erase(words.begin());
  if (name == L"--help") {
    PrintLine(kUsage);
    return kExitDone;
  }
  for (const NamedCommand& command : kCommands) {
    if (name != command.name) continue;
    Arguments arguments(std::move(words));
    const int code = command.run(arguments);
    if (!arguments.error().empty()) {
      PrintError(Format(L"wfpctl: %s: %s", name, arguments.error()));
    }
    return code;
  }
  PrintError(Format(L"wfpctl: there is no command '%s'; wfpctl --help lists them", name));
  return kExitError;
}

}  // namespace

void PrintLine(const std::wstring& text) {
  std::printf("%s\n", kestrelon::Utf8FromWide(text).c_str());
}

void PrintError(const std::wstring& text) {
  std::fprintf(stderr, "%s\n", kestrelon::Utf8FromWide(text).c_str());
}

int ReportFailure(std::wstring_view what, Code code) {
  PrintError(Format(L"wfpctl: %s: %s", what, CodeText(code)));
  return kExitError;
}

}  // namespace simulation

int wmain(int count, wchar_t** arguments) {
  // Lines end as the shells outside of Wine expect them.
  _setmode(_fileno(stdout), _O_BINARY);
  return simulation::Run(std::vector<std::wstring>(arguments + 1, arguments + count));
}

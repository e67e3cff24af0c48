// wfpctl's questions: the verdict on one connection, or on many.
#include <filesystem>
#include <fstream>
#include <iostream>

#include "base/format.h"
#include "base/text.h"
#include "simulation/bench/verdict_wire.h"
#include "simulation/bench/wfpctl_commands.h"
#include "simulation/bench/wfpctl_connection.h"
#include "simulation/bench/wfpctl_text.h"

namespace simulation {
namespace {

using kestrelon::Format;
using kestrelon::platform::kSuccess;

Code AskVerdict(PipeChannel& channel, const Connection& connection, VerdictSummary& verdict) {
  WireWriter request = channel.Begin();
  request.U8(static_cast<std::uint8_t>(Operation::kClassify));
  Put(request, connection);
  WireReader reply;
  if (!channel.Send() || !channel.Receive(reply)) return kCallFailed;
  const Code code = reply.U32();
  if (code == kSuccess) verdict = TakeVerdictSummary(reply);
  return reply.Finished() ? code : kBadStubData;
}

// Two filters of one weight that disagree are shown: real engines promise no order then.
std::wstring VerdictLine(const VerdictSummary& verdict) {
  std::wstring line = verdict.permit ? L"PERMIT" : L"BLOCK";
  if (!verdict.matched) return line + L" weight=none filter=none";
  if (verdict.tied_conflict) line += L" TIED";
  return line + Format(L" weight=%s filter=%s", WeightText(verdict.weight), verdict.name);
}

// The verdict on one line of a batch; false if there is none.
bool AnswerLine(PipeChannel& channel, std::wstring_view line) {
  Arguments arguments(WordsOfLine(line));
  const Connection connection = TakeConnection(arguments);
  if (!arguments.Finished()) {
    PrintLine(L"ERROR " + arguments.error());
    return false;
  }
  VerdictSummary verdict;
  if (const Code code = AskVerdict(channel, connection, verdict)) {
    PrintLine(L"ERROR " + CodeText(code));
    return false;
  }
  PrintLine(VerdictLine(verdict));
  return true;
}

bool AnswerLines(PipeChannel& channel, std::istream& lines) {
  bool all = true;
  for (std::string line; std::getline(lines, line);) {
    const std::wstring text = kestrelon::WideFromUtf8(line);
    const std::wstring_view trimmed = kestrelon::Trim(text);
    if (trimmed.empty() || trimmed.front() == L'#') continue;
    if (!AnswerLine(channel, trimmed)) all = false;
  }
  return all;
}

}  // namespace

int Connect(Arguments& arguments) {
  const Connection connection = TakeConnection(arguments);
  if (!arguments.Finished()) return kExitError;
  PipeChannel channel;
  if (const Code code = ConnectToEngine(channel)) return ReportFailure(L"connect", code);
  VerdictSummary verdict;
  const Code code = AskVerdict(channel, connection, verdict);
  if (code != kSuccess) return ReportFailure(L"connect", code);
  PrintLine(VerdictLine(verdict));
  return verdict.permit ? kExitDone : kExitBlocked;
}

int Batch(Arguments& arguments) {
  const std::wstring path = arguments.Word(L"the batch file");
  if (!arguments.Finished()) return kExitError;
  PipeChannel channel;
  if (const Code code = ConnectToEngine(channel)) return ReportFailure(L"batch", code);
  if (path == L"-") return AnswerLines(channel, std::cin) ? kExitDone : kExitError;
  std::ifstream file{std::filesystem::path(path)};
  if (!file) {
    PrintError(Format(L"batch: cannot read '%s'", path));
    return kExitError;
  }
  return AnswerLines(channel, file) ? kExitDone : kExitError;
}

}  // namespace simulation

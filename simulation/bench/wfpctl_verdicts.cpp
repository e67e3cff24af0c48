// wfpctl's questions: the verdict on one connection, or on many.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <utility>
#include <vector>

#include "base/format.h"
#include "base/text.h"
#include "simulation/bench/bench_wire.h"
#include "simulation/bench/wfpctl_commands.h"
#include "simulation/bench/wfpctl_connection.h"
#include "simulation/bench/wfpctl_text.h"

namespace simulation {
namespace {

using kestrelon::Format;
using kestrelon::platform::kSuccess;

// Of a file, so many lines are one question; who writes to the input waits for each answer.
constexpr std::size_t kLinesOfFile = 1000;

Code AskVerdicts(PipeChannel& channel, const std::vector<Connection>& connections,
                 std::vector<VerdictSummary>& verdicts) {
  WireWriter request = channel.Begin();
  request.U8(static_cast<std::uint8_t>(Operation::kClassify));
  request.U32(static_cast<std::uint32_t>(connections.size()));
  for (const Connection& connection : connections) Put(request, connection);
  WireReader reply;
  if (!channel.Send() || !channel.Receive(reply)) return kCallFailed;
  if (const Code code = reply.U32()) return code;
  verdicts.resize(connections.size());
  for (VerdictSummary& verdict : verdicts) verdict = TakeVerdictSummary(reply);
  return reply.Finished() ? kSuccess : kBadStubData;
}

// Two filters of one weight that disagree are shown: real engines promise no order then.
std::wstring VerdictLine(const VerdictSummary& verdict) {
  std::wstring line = verdict.permit ? L"PERMIT" : L"BLOCK";
  if (!verdict.matched) return line + L" weight=none filter=none";
  if (verdict.tied_conflict) line += L" TIED";
  return line + Format(L" weight=%s filter=%s", WeightText(verdict.weight), verdict.name);
}

// Lines of a batch that are asked together.
struct Questions {
  std::vector<Connection> connections;
  std::vector<std::wstring> mistakes;  // a line's; empty for a connection
};

void AddQuestion(std::wstring_view line, Questions& questions) {
  Arguments arguments(WordsOfLine(line));
  Connection connection = TakeConnection(arguments);
  if (arguments.Finished()) questions.connections.push_back(std::move(connection));
  questions.mistakes.push_back(arguments.error());
}

// Prints a line for each; false if one is no verdict.
bool AnswerQuestions(PipeChannel& channel, const Questions& questions) {
  std::vector<VerdictSummary> verdicts;
  const Code code = AskVerdicts(channel, questions.connections, verdicts);
  bool all = code == kSuccess;
  std::size_t next = 0;
  for (const std::wstring& mistake : questions.mistakes) {
    if (!mistake.empty()) {
      PrintLine(L"ERROR " + mistake);
      all = false;
    } else if (code != kSuccess) {
      PrintLine(L"ERROR " + CodeText(code));
    } else {
      PrintLine(VerdictLine(verdicts[next++]));
    }
  }
  std::fflush(stdout);
  return all;
}

bool AnswerLines(PipeChannel& channel, std::istream& lines, std::size_t at_a_time) {
  bool all = true;
  Questions questions;
  const auto answer = [&] {
    if (!AnswerQuestions(channel, questions)) all = false;
    questions = {};
  };
  for (std::string line; std::getline(lines, line);) {
    const std::wstring text = kestrelon::WideFromUtf8(line);
    const std::wstring_view trimmed = kestrelon::Trim(text);
    if (trimmed.empty() || trimmed.front() == L'#') continue;
    AddQuestion(trimmed, questions);
    if (questions.mistakes.size() == at_a_time) answer();
  }
  if (!questions.mistakes.empty()) answer();
  return all;
}

}  // namespace

int Connect(Arguments& arguments) {
  const Connection connection = TakeConnection(arguments);
  if (!arguments.Finished()) return kExitError;
  PipeChannel channel;
  if (const Code code = ConnectToEngine(channel)) return ReportFailure(L"connect", code);
  std::vector<VerdictSummary> verdicts;
  const Code code = AskVerdicts(channel, {connection}, verdicts);
  if (code != kSuccess) return ReportFailure(L"connect", code);
  PrintLine(VerdictLine(verdicts.front()));
  return verdicts.front().permit ? kExitDone : kExitBlocked;
}

int Batch(Arguments& arguments) {
  const std::wstring path = arguments.Word(L"the batch file");
  if (!arguments.Finished()) return kExitError;
  PipeChannel channel;
  if (const Code code = ConnectToEngine(channel)) return ReportFailure(L"batch", code);
  if (path == L"-") return AnswerLines(channel, std::cin, 1) ? kExitDone : kExitError;
  std::ifstream file{std::filesystem::path(path)};
  if (!file) {
    PrintError(Format(L"batch: cannot read '%s'", path));
    return kExitError;
  }
  return AnswerLines(channel, file, kLinesOfFile) ? kExitDone : kExitError;
}

}  // namespace simulation

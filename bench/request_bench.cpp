// What the service takes for a client's request, from the bytes of the frame to those of the
// answer, beside a known library that reads and writes the same two texts and answers nothing.
#include <nlohmann/json.hpp>
#include <string>

#include "bench/large_config.h"
#include "bench/measure.h"
#include "config/config_file.h"
#include "control/dispatch.h"
#include "core/core_state.h"
#include "events/activity_log.h"
#include "simulation/machine/machine.h"

namespace kestrelon {
namespace {

constexpr std::uint32_t kRecentConnections = 2000;

std::string Answer(const std::string& frame) {
  Json request;
  Require(Json::Parse(frame, request));
  Json reply = DispatchCommand(request);
  Require(reply.Get("ok").boolean());
  return reply.Dump(false);
}

void Measure(const char* what, const std::string& frame) {
  const std::string answer = Answer(frame);
  const nlohmann::json peer_answer = nlohmann::json::parse(answer);
  // Short ones many times: the clock's steps are not fine enough for one.
  const int times = answer.size() + frame.size() < 10000 ? 1000 : 1;
  const std::vector<double> taken = InTurn({
      [&] {
        for (int i = 0; i < times; ++i) Require(Answer(frame).size() == answer.size());
      },
      [&] {
        for (int i = 0; i < times; ++i) {
          Require(nlohmann::json::parse(frame).is_object());
          Require(peer_answer.dump().size() == answer.size());
        }
      },
  });
  Print({what, taken[0] / times, "nlohmann-json's parse and dump", taken[1] / times});
}

void RememberConnections() {
  BlockedEvent event;
  event.time = simulation::kFirstSystemTime;
  event.app = L"C:\\Program Files\\Vendor\\Product\\application.exe";
  event.protocol = 6;
  event.local_addr = L"192.0.2.7";
  event.remote_addr = L"203.0.113.5";
  event.local_port = 49152;
  event.reason = L"default";
  for (std::uint32_t port = 0; port < kRecentConnections; ++port) {
    event.remote_port = port;
    RecordBlockedEvent(event);
  }
}

void Run() {
  simulation::TheMachine();
  RememberConnections();
  {
    GuardLock lock(ConfigGuard);
    Core.CurrentConfig = ConfigOfApps({});
  }
  PrintSection("Requests",
               "With 5,000 rules and 2,000 applications, and 2,000 connections remembered.");
  Measure("status", R"({"cmd":"status"})");
  Measure("get_config", R"({"cmd":"get_config"})");
  Measure("get_log", R"({"cmd":"get_log"})");
}

}  // namespace
}  // namespace kestrelon

int main() {
  kestrelon::Run();
}

// Replays the sessions in the document on the protocol, with the whole service on the simulated
// machine: requests are sent as they stand there, and what comes back is compared.
#include <functional>
#include <map>
#include <optional>
#include <sstream>

#include "blocklists/refresh_blocklists.h"
#include "control/subscribers.h"
#include "core/core_loop.h"
#include "core/core_state.h"
#include "modules/module_pipe.h"
#include "platform/codes.h"
#include "simulation/machine/acting_process.h"
#include "tests/control/pipe_world.h"
#include "tests/documents/document.h"
#include "tests/scenario/world.h"
#include "tests/updates/signing.h"
#include "updates/update_state.h"

namespace kestrelon::test {
namespace {

const std::wstring kManifestUrl = L"https://localhost:28444/update/latest.json";
constexpr const wchar_t* kNextVersion = L"C:\\Apps\\chat-2.1\\chat.exe";
constexpr const char* kManifest =
    R"({"format":1,"product":"Kestrelon","channel":"stable","version":"1.3.0","build":50,)"
    R"("date":"2026-11-20","notes_en":"Faster.","notes_sk":"Novinky.","size":1000,)"
    R"("url":"https://localhost:28444/KestrelonSetup.exe",)"
    R"("sha256":"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"})";

// "..." after the last member of an object, as a member of that name.
std::string WithMarks(std::string text) {
  const std::string mark = ",...}";
  for (std::size_t at; (at = text.find(mark)) != std::string::npos;) {
    text.replace(at, mark.size(), R"(,"...":0})");
  }
  return text;
}

// Whether a value is what the document tells: a number is any number, "..." whatever more there is.
bool IsAsTold(const Json& told, const Json& value) {
  if (told.kind() != value.kind()) return false;
  if (told.kind() == Json::Kind::kNumber) return true;
  if (told.text().ends_with("...")) {
    return value.text().starts_with(told.text().substr(0, told.text().size() - 3));
  }
  if (!told.IsArray() && !told.IsObject()) return told.Dump(false) == value.Dump(false);
  for (std::size_t i = 0; i < told.size(); ++i) {
    if (told.KeyAt(i) == "...") return true;
    if (told.KeyAt(i) != value.KeyAt(i)) return false;
    if (!IsAsTold(told.IsArray() ? told.At(i) : told.ValueAt(i),
                  told.IsArray() ? value.At(i) : value.ValueAt(i))) {
      return false;
    }
  }
  return told.size() == value.size();
}

// The lines of a session; one that begins with a blank goes on with the one before.
std::vector<std::string> StepsOf(const std::string& session) {
  std::vector<std::string> steps;
  std::istringstream lines(session);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(" ") && !steps.empty()) {
      steps.back() += line.substr(line.find_first_not_of(' '));
    } else {
      steps.push_back(line);
    }
  }
  return steps;
}

class ProtocolDocument : public Scenario {
 protected:
  ProtocolDocument() {
    world.Signed(L"C:\\Apps\\chat-2.0\\chat.exe", "chat 2.0", kPublisher);
    world.Signed(kNextVersion, "chat 2.1", kPublisher);
    world.machine().sessions.SignIn(1);
    std::string networks;
    for (int i = 1; i <= 12; ++i) networks += "192.0." + std::to_string(i) + ".0/24\n";
    world.machine().http.Serve(L"https://localhost:28443/drop/drop_v4.json", {.body = networks});
    world.machine().http.Serve(L"https://localhost:28443/drop/drop_v6.json",
                               {.body = "2001:db8:1::/48"});
    world.machine().http.Serve(kManifestUrl, {.body = kManifest});
    world.machine().http.Serve(kManifestUrl + L".sig", {.body = SignManifest(kManifest)});
  }

  // What happens to the machine between two lines, by the words that tell it.
  using Happenings = std::map<std::string, std::function<void()>>;
  Happenings MakeHappenings() {
    simulation::Machine& machine = world.machine();
    const auto blocked = [this](const wchar_t* program, std::uint16_t port) {
      return [=, this] { EXPECT_FALSE(world.Connects(Out(program, L"203.0.113.5", port))); };
    };
    return {
        {"a moment later", &PassMoment},
        {"a minute later",
         [&] {
           machine.clock.Advance(60'000);
           PassMoment();
         }},
        {"tool.exe tries to reach 203.0.113.5, TCP port 443", blocked(kTool, 443)},
        {"browser.exe tries to reach 203.0.113.5, TCP port 23", blocked(kBrowser, 23)},
        {"browser.exe reaches 203.0.113.5, TCP port 443",
         [this] { EXPECT_TRUE(world.Connects(Out(kBrowser, L"203.0.113.5", 443))); }},
        {"chat.exe 2.1 is there and tries to reach 203.0.113.5, TCP port 443",
         blocked(kNextVersion, 443)},
        {"the disk is full", [&] { machine.files.SetFull(true); }},
        {"the disk has room, but will not take the file itself",
         [&] {
           machine.files.SetFull(false);
           machine.faults.FailNthOf("RenameFile", 2, platform::kAccessDenied);
         }},
        {"the filtering engine is busy for too long",
         [&] { machine.faults.FailOnce("CommitTransaction", platform::kTransactionTimeout); }},
        {"the module's file is put where it belongs", [this] { world.InstallModule(); }},
        {"an installation has begun", [] { SetUpdateState(kUpdateInstalling, L""); }},
        {"it has failed, and the machine has room for no more threads",
         [this] {
           SetUpdateState(kUpdateError, L"the installation did not finish");
           no_threads.emplace();
         }},
        {"there is room again, and the update host does not answer",
         [&] {
           no_threads.reset();
           machine.http.Serve(kManifestUrl, {.silent = true});
         }},
        {"the service stops", [] { Core.Stopping = true; }},
    };
  }

  // What was started in the background ends, and the loop makes its next pass.
  static void PassMoment() {
    const auto rests = [] { return !UpdateSignals.busy && !BlocklistRefreshRunning(); };
    EXPECT_TRUE(Eventually(rests));
    LoopPass();
    EXPECT_TRUE(Eventually(rests));
  }

  void Compare(const std::string& told, const std::string& value) {
    Json told_json;
    Json json;
    ASSERT_TRUE(Json::Parse(WithMarks(told), told_json)) << told;
    EXPECT_TRUE(Json::Parse(value, json) && IsAsTold(told_json, json))
        << "told: " << told << "\nis:   " << value << "\nbehind " << requests;
  }

  // A session on the pipe of the clients, or on that of the modules as its module.
  void Replay(const Block& block) {
    const bool module = block.kind == "module session";
    const auto ids = world.machine().processes.Running(kModuleFile, 1);
    ASSERT_TRUE(!module || ids.size() == 1U);
    std::optional<simulation::AsProcess> acting;
    if (module) acting.emplace(ids[0]);
    PipeClient client(module ? kModulePipeName : kControlPipeName);
    acting.reset();
    std::optional<PipeClient> subscriber;
    for (const std::string& step : StepsOf(block.text)) {
      const std::string text = step.substr(step.find(' ') + 1);
      if (text == R"({"cmd":"subscribe"})") {
        requests += text;
        subscriber.emplace().Subscribe();
      } else if (step.starts_with("> ")) {
        if (!module) requests += text + "\n";
        client.Send(text);
      } else if (step.starts_with("< ")) {
        replies += client.Receive() + "\n";
        Compare(text, replies.substr(replies.rfind('\n', replies.size() - 2) + 1));
      } else if (step.starts_with("* ")) {
        events += text;
        Compare(text, subscriber ? subscriber->Receive() : kEnded);
      } else {
        const auto happening = happenings.find(step.substr(1, step.size() - 2));
        ASSERT_NE(happening, happenings.end()) << step;
        happening->second();
      }
    }
    if (!subscriber) return;
    PublishEvent("end");
    EXPECT_EQ(subscriber->Receive(), "end") << "an event that the document leaves out";
  }

  std::optional<NoMoreThreads> no_threads;
  const Happenings happenings = MakeHappenings();
  std::string requests;
  std::string replies;
  std::string events;
};

// One case, since each session goes on where the one before ended.
TEST_F(ProtocolDocument, ItsSessionsAreWhatTheServiceAnswersAndLeaveNothingOut) {
  const std::string document = ReadText("docs/protocol.md");
  Config config = ConfigOf({Allowed(kBrowser)});
  config.updates_auto_check = true;
  ASSERT_TRUE(world.StartWith(config));
  for (const Block& block : BlocksOf(document)) Replay(block);

  std::set<std::string> commands = Found(R"re(\{"(\w+)", U\w+<)re", Sources("control"));
  commands.insert("subscribe");
  EXPECT_EQ(FirstCells(SectionOf(document, "Requests and replies")), commands);
  EXPECT_EQ(Found(R"re("cmd":"(\w+)")re", requests), commands);

  const std::set<std::string> types =
      Found(R"re((ConfigEvent\(|"type"\] = (Json\()?|"type":)"(\w+)")re", Sources(""));
  EXPECT_EQ(FirstCells(SectionOf(document, "Events")), types);
  EXPECT_EQ(Found(R"re("type":"(\w+)")re", events + R"("type":"ping")"), types);

  // By the sources, which have them all, and by the replies, which show that they are told so.
  const std::set<std::string> refusals = FirstCells(SectionOf(document, "What a command refuses"));
  for (const std::string& sentence : refusals) {
    EXPECT_TRUE(replies.find(R"("error":")" + sentence) != std::string::npos) << sentence;
  }
  for (const char* source : {"control/dispatch", "control/client", "core/config_change",
                             "modules/module_list", "updates/update_worker"}) {
    for (const std::string& sentence :
         Found(R"re((ErrorReply\(|\berror = )L"([^"]+)")re", Sources(source))) {
      EXPECT_TRUE(document.find("`" + sentence) != std::string::npos) << sentence;
    }
  }
}

}  // namespace
}  // namespace kestrelon::test

// The control pipe: answers, refusals, and whose it is.
#include "control/frames.h"
#include "control/pipe_server.h"
#include "platform/pipes.h"
#include "tools/check/cases.h"

namespace kestrelon::check {
namespace {

using ControlPipe = InstalledService;

// Makes an instance that insists on being the pipe's first.
platform::Code TakeName(platform::Pipe& pipe) {
  platform::PipeSettings settings;
  settings.name = kControlPipeName;
  settings.open_mode = platform::kPipeDuplex | platform::kPipeFirstInstance;
  settings.pipe_mode = platform::kPipeMessageType | platform::kPipeMessageRead;
  return platform::MakePipe(settings, {}, pipe);
}

TEST_F(ControlPipe, GivesTheConfigurationAndTakesItBack) {
  const Json config = Ask(R"({"cmd":"get_config"})").Get("config");
  ASSERT_TRUE(config.IsObject());
  const Json reply = SetConfig(config.Dump(false));
  EXPECT_TRUE(reply.Get("ok").boolean()) << reply.Dump(false);
  EXPECT_EQ(Ask(R"({"cmd":"get_config"})").Get("config").Dump(false), config.Dump(false));
}

TEST_F(ControlPipe, RefusesWhatItDoesNotUnderstand) {
  const std::pair<const char*, const char*> cases[] = {
      {R"({"cmd":"Status"})", "unknown command: Status"},
      {"status", "invalid request: "},
      {R"({"cmd":"set_config","config":7})", "Invalid configuration: "},
      {R"({"cmd":"file_info"})", "missing path"},
  };
  for (const auto& [request, error] : cases) {
    const Json reply = Ask(request);
    EXPECT_TRUE(reply.Has("ok") && !reply.Get("ok").boolean()) << request;
    EXPECT_TRUE(reply.Get("error").text().starts_with(error)) << reply.Dump(false);
  }
}

TEST_F(ControlPipe, EndsTheConnectionOfARequestThatIsTooLongAndServesTheOthers) {
  EXPECT_TRUE(Ask(std::string(kLargestFrameBytes + kReadChunkBytes, ' ')).IsNull());
  EXPECT_TRUE(Ask(kStatus).Get("ok").boolean());
}

TEST_F(ControlPipe, IsNobodyElsesWhileTheServiceRuns) {
  ASSERT_TRUE(Ask(kStatus).Get("ok").boolean());
  platform::Pipe pipe;
  EXPECT_EQ(TakeName(pipe), platform::kAccessDenied);
}

TEST_F(ControlPipe, IsNotServedBesideAnInstanceOfSomebodyElses) {
  ASSERT_TRUE(BringDownService());
  platform::Pipe squatter;
  ASSERT_EQ(TakeName(squatter), platform::kSuccess);
  ASSERT_TRUE(BringUpService());
  platform::Pipe first, second;
  EXPECT_EQ(platform::OpenPipe(kControlPipeName, true, first), platform::kSuccess);
  EXPECT_NE(platform::OpenPipe(kControlPipeName, true, second), platform::kSuccess)
      << "the service made an instance beside the first one";
  first.Close();
  squatter.Close();
  EXPECT_TRUE(Ask(kStatus).Get("ok").boolean());
}

}  // namespace
}  // namespace kestrelon::check

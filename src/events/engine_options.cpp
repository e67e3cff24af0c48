#include "events/engine_options.h"

namespace kestrelon {

platform::Code SetEngineOption(platform::EngineOption option, std::uint32_t value) {
  platform::SessionOptions session;
  session.name = L"Kestrelon options";
  platform::EngineHandle engine = 0;
  platform::Code code = platform::OpenEngineSession(session, engine);
  if (code != platform::kSuccess) return code;
  code = platform::SetOption(engine, option, value);
  platform::CloseEngineSession(engine);
  return code;
}

}  // namespace kestrelon

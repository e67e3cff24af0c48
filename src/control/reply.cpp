#include "control/reply.h"

namespace kestrelon {

Json OkReply() {
  Json reply;
  reply["ok"] = Json(true);
  return reply;
}

Json ErrorReply(const std::wstring& text) {
  Json reply;
  reply["ok"] = Json(false);
  reply["error"] = Json(text);
  return reply;
}

}  // namespace kestrelon

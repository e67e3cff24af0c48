#include "tools/check/areas.h"

#include <algorithm>
#include <iterator>

namespace kestrelon::check {
namespace {

struct ProductArea {
  const char* file;
  const char* heading;
  bool needs_engine;
};

constexpr ProductArea kProductAreas[] = {
    {"tools/check/executable_cases.cpp", "Kestrelon: the executable", false},
    {"tools/check/foreground_cases.cpp", "Kestrelon: a run in the foreground", true},
    {"tools/check/service_cases.cpp", "Kestrelon: the service", true},
    {"tools/check/pipe_cases.cpp", "Kestrelon: the control pipe", true},
    {"tools/check/access_cases.cpp", "Kestrelon: who may do what", true},
    {"tools/check/program_cases.cpp", "Kestrelon: programs and their files", true},
    {"tools/check/connection_cases.cpp", "Kestrelon: connections of this computer", true},
    {"tools/check/removal_cases.cpp", "Kestrelon: removal", true},
};

const ProductArea* FindArea(const std::string& file) {
  const auto* found = std::ranges::find_if(
      kProductAreas, [&](const ProductArea& area) { return file == area.file; });
  return found == std::end(kProductAreas) ? nullptr : found;
}

}  // namespace

int AreaOrder(const std::string& file) {
  const ProductArea* area = FindArea(file);
  return area == nullptr ? 0 : static_cast<int>(area - kProductAreas) + 1;
}

// "tests/contract/text_and_paths_test.cpp" is about text and paths.
std::string AreaHeading(const std::string& file) {
  if (const ProductArea* area = FindArea(file)) return area->heading;
  const std::size_t begin = file.find_last_of("/\\") + 1;
  std::string topic = file.substr(begin, file.rfind("_test.") - begin);
  std::ranges::replace(topic, '_', ' ');
  return "What Kestrelon asks of Windows: " + topic;
}

bool AreaNeedsEngine(const std::string& file) {
  const ProductArea* area = FindArea(file);
  return area != nullptr && area->needs_engine;
}

}  // namespace kestrelon::check

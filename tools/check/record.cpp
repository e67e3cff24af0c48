#include "tools/check/record.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "config/json.h"

namespace kestrelon::check {

void AppendRecord(const std::wstring& path, const CaseResult& result) {
  Json line;
  line["name"] = result.name;
  line["file"] = result.file;
  line["verdict"] = static_cast<int>(result.verdict);
  line["text"] = result.text;
  std::ofstream file(std::filesystem::path(path), std::ios::app | std::ios::binary);
  file << line.Dump(false) + "\n";
}

std::vector<CaseResult> ReadRecord(const std::wstring& path) {
  std::vector<CaseResult> results;
  std::ifstream file(std::filesystem::path(path), std::ios::binary);
  for (std::string text; std::getline(file, text);) {
    Json line;
    if (!Json::Parse(text, line)) continue;
    CaseResult result;
    result.name = line.Get("name").text();
    result.file = line.Get("file").text();
    result.verdict = static_cast<Verdict>(line.Get("verdict").integer());
    result.text = line.Get("text").text();
    const auto known = std::ranges::find(results, result.name, &CaseResult::name);
    if (known == results.end()) {
      results.push_back(std::move(result));
    } else {
      *known = std::move(result);
    }
  }
  return results;
}

}  // namespace kestrelon::check

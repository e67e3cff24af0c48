#include "config/json_fields.h"

#include "base/format.h"
#include "base/text.h"

namespace kestrelon {

std::wstring TrimmedText(const Json& value) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::string_view text = value.text();
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return WideFromUtf8(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

bool ReadBool(const Json& object, std::string_view key, bool otherwise, bool& value,
              std::wstring& error) {
  const Json& member = object.Get(key);
  if (!member.IsNull() && member.kind() != Json::Kind::kBoolean) {
    error = Format(L"'%s' must be true or false", WideFromUtf8(key));
    return false;
  }
  value = member.IsNull() ? otherwise : member.boolean();
  return true;
}

bool ReadText(const Json& object, std::string_view key, std::wstring& value, std::wstring& error) {
  const Json& member = object.Get(key);
  if (!member.IsNull() && !member.IsString()) {
    error = Format(L"'%s' must be a string", WideFromUtf8(key));
    return false;
  }
  value = TrimmedText(member);
  return true;
}

bool ReadWholeNumber(const Json& object, std::string_view key, std::int64_t& value,
                     std::wstring& error) {
  const Json& member = object.Get(key);
  if (!member.IsNull() && !member.IsWholeNumber()) {
    error = Format(L"'%s' must be a whole number", WideFromUtf8(key));
    return false;
  }
  value = member.is_integer() ? member.integer() : static_cast<std::int64_t>(member.floating());
  return true;
}

}  // namespace kestrelon

#include "config/json.h"

#include <gtest/gtest.h>

namespace kestrelon {
namespace {

using namespace std::string_literals;

std::string Repeat(std::string_view text, std::size_t times) {
  std::string out;
  for (std::size_t i = 0; i < times; ++i) out += text;
  return out;
}

// The value of a text that must parse.
Json Parsed(std::string_view text) {
  Json value;
  std::string error;
  EXPECT_TRUE(Json::Parse(text, value, &error)) << text << ": " << error;
  return value;
}

TEST(JsonParse, MalformedTextsFailWithOneReason) {
  const std::pair<const char*, std::vector<std::string>> families[] = {
      {"unexpected end of input", {"", " \t\r\n", "[", "[1,", "{\"a\":"}},
      {"expected object key", {"{", "{\"a\":1,}", "{1:2}"}},
      {"expected ':'", {"{\"a\" 1}", "{\"a\""}},
      {"expected ',' or '}'", {"{\"a\":1", "{\"a\":1]"}},
      {"expected ',' or ']'", {"[1", "[1 2]", "[1}", "[truex]"}},
      {"unexpected character",
       {"[1,]", "[,]", "nul", "True", "+1", ".5", "\v1", "\0"s, "\xEF\xBB\xBF{}"}},
      {"bad number (leading zero)", {"01", "-00"}},
      {"bad number", {"-", "--1", "1.", "1.e5", "1e", "1e+"}},
      {"number out of range",
       {"1e999", "-1e999", "1e99999999999999999999", "0.00001e99999", "1.7976931348623159e308",
        Repeat("9", 310)}},
      {"unterminated string", {"\"abc", "\"abc\\", "{\"a"}},
      {"unescaped control character in string", {"\"abcdefgh\n\"", "\"\\n\x1F\"", "\"\0\""s}},
      {"bad escape", {"\"\\a\"", "\"\\U0041\"", "{\"a\\x\":1}"}},
      {"bad \\u escape", {"\"\\u004\"", "\"\\u004", "\"\\u00g0\""}},
      {"lone surrogate",
       {"\"\\ud83d\"", "\"\\ud83dx\"", "\"\\ud83d\\n00000\"", "\"\\ud83d\\u00", "\"\\ude00\""}},
      {"bad surrogate pair", {"\"\\ud83d\\u0041\"", "\"\\ud83d\\ud83d\"", "\"\\ud83d\\uzzzz\""}},
      {"trailing characters", {"true false", "truex", "{}\0"s}},
      {"nesting too deep",
       {Repeat("[", 66) + Repeat("]", 66), Repeat("[", 66), Repeat("[", 65) + "1" + Repeat("]", 65),
        Repeat("{\"a\":", 65) + "1" + Repeat("}", 65)}}};
  for (const auto& [reason, texts] : families) {
    for (const std::string& text : texts) {
      Json value = "before";
      std::string error;
      EXPECT_FALSE(Json::Parse(text, value, &error)) << text;
      EXPECT_EQ(error, reason) << text;
      EXPECT_EQ(value.text(), "before") << text;
    }
  }
  Json value;
  EXPECT_FALSE(Json::Parse("", value)) << "without asking for the reason";
}

TEST(JsonParse, ValuesAreWrittenInOneForm) {
  for (const char* kept : {"null", "[true,false]", "{}", "9223372036854775807",
                           "-9223372036854775808", "1e+17", "\"\"", "\"\\u0000\\u001f\x7F\"",
                           "\"\xFF\xC0 stays\"", "\"0123456789abcdef\\\"0123456789abcdef\\\"\""}) {
    EXPECT_EQ(Parsed(kept).Dump(false), kept);
  }
  const std::string deep = Repeat("[", 65) + Repeat("]", 65);
  EXPECT_EQ(Parsed(deep).Dump(false), deep);
  const std::pair<std::string, std::string> rewritten[] = {
      {"\t[ ]\r\n", "[]"},
      {"{ \"a\" : [ 1 , { } ] , \"\" : null }", "{\"a\":[1,{}],\"\":null}"},
      {"{\"a\":{\"x\":1},\"b\":2,\"a\":3,\"b\":4,\"a\":[]}", "{\"a\":[],\"b\":4}"},
      {"9223372036854775808", "9.2233720368547758e+18"},
      {"-9223372036854775809", "-9.2233720368547758e+18"},
      {"1.0", "1"},
      {"-3.0e2", "-300"},
      {"1e15", "1000000000000000"},
      {"999999999999999.0", "999999999999999"},
      {"1e16", "10000000000000000"},
      {"1E+17", "1e+17"},
      {"0.1", "0.10000000000000001"},
      {"1e-5", "1.0000000000000001e-05"},
      {"5e-324", "4.9406564584124654e-324"},
      {"1.7976931348623157e308", "1.7976931348623157e+308"},
      {"0." + Repeat("0", 400) + "1e401", "1"},
      {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "\"\\\"\\\\/\\u0008\\u000c\\n\\r\\t\""},
      {"\"\\u0041\\u00e9\\u20AC\"", "\"A\xC3\xA9\xE2\x82\xAC\""},
      {"\"\\ud83d\\uDE00\"", "\"\xF0\x9F\x98\x80\""}};
  for (const auto& [text, compact] : rewritten) {
    EXPECT_EQ(Parsed(text).Dump(false), compact) << text;
    EXPECT_EQ(Parsed(compact).Dump(false), compact) << text;
  }
  for (const char* zero : {"-0", "-0.0", "-0e5", "1e-999", "-1e-99999999999999999999", "0e99999"}) {
    EXPECT_EQ(Parsed(zero).Dump(false), "0") << zero;
  }
}

TEST(JsonParse, AMillionValuesPassAndOneMoreFails) {
  const std::string most = "[" + Repeat("[],", 999'998) + "[]]";
  Json value = Parsed(most);
  EXPECT_EQ(value.size(), 999'999u);
  EXPECT_TRUE(Parsed(value.Dump(true)).Dump(false) == most);
  value = Json();
  std::string error;
  EXPECT_FALSE(Json::Parse("[" + Repeat("1,", 999'999) + "1]", value, &error));
  EXPECT_EQ(error, "too many values");
  EXPECT_TRUE(value.IsNull());
}

// Repeated and distinct keys in a number for which a search from the front would take hours.
TEST(JsonParse, ManyKeysKeepFirstPositionAndLastValue) {
  constexpr std::int64_t kKeys = 400'000;
  std::string text = "{";
  for (std::int64_t i = 0; i < 2 * kKeys; ++i) {
    text += "\"key with a long beginning " + std::to_string(i % kKeys) + "\":" + std::to_string(i);
    text += i + 1 < 2 * kKeys ? "," : "}";
  }
  const Json value = Parsed(text);
  ASSERT_EQ(value.size(), static_cast<std::size_t>(kKeys));
  for (std::int64_t i = 0; i < kKeys; ++i) {
    const auto at = static_cast<std::size_t>(i);
    ASSERT_EQ(value.KeyAt(at), "key with a long beginning " + std::to_string(i));
    ASSERT_EQ(value.ValueAt(at).integer(), i + kKeys);
  }
}

TEST(JsonValue, WholeNumbersAreHeldExactlyAndAlsoAsDoubles) {
  for (const char* whole : {"5", "-5.0", "1e3", "9223372036854775807", "9.1e18"}) {
    EXPECT_TRUE(Parsed(whole).IsWholeNumber()) << whole;
  }
  for (const char* other : {"5.5", "9.2e18", "9223372036854775808", "-1e300", "\"5\"", "true"}) {
    EXPECT_FALSE(Parsed(other).IsWholeNumber()) << other;
  }
  const Json exact = Parsed("9007199254740993");
  EXPECT_EQ(exact.integer(), 9007199254740993);
  EXPECT_EQ(exact.floating(), 9007199254740992.0);
  EXPECT_FALSE(Parsed("7.0").is_integer());
  EXPECT_EQ(Parsed("7.0").integer(), 0);
  EXPECT_EQ(Parsed("7.0").floating(), 7.0);
}

TEST(JsonValue, PrettyFormIndentsByTwoAndKeepsEmptyContainersTogether) {
  EXPECT_EQ(
      Parsed("{\"a\":[1,[]],\"b\":{},\"c\":{\"d\":\"x\"}}").Dump(true),
      "{\n  \"a\": [\n    1,\n    []\n  ],\n  \"b\": {},\n  \"c\": {\n    \"d\": \"x\"\n  }\n}");
}

TEST(JsonValue, LookupsChainOnWhatIsMissing) {
  const Json value = Parsed("{\"a\":{\"b\":[10,null]},\"n\":null}");
  EXPECT_EQ(value.Get("a").Get("b").At(0).integer(), 10);
  EXPECT_TRUE(value.Get("x").Get("y").At(3).Get("z").IsNull());
  EXPECT_TRUE(value.Has("n") && value.Get("n").IsNull());
  EXPECT_FALSE(value.Has("A") || value.Get("a").At(0).Has("b") || Json("n").Has("n"));
  EXPECT_TRUE(value.At(0).IsNull());  // an object has a size but no elements
  EXPECT_EQ(value.size(), 2u);
  EXPECT_TRUE(value.Get("a").Get("b").At(2).IsNull());
  EXPECT_TRUE(value.KeyAt(2).empty() && value.ValueAt(2).IsNull());
  EXPECT_EQ(Json("text").size(), 0u);
  EXPECT_EQ(Json("\xC3\xA9").StringOr(L"other"), L"\x00E9");
  EXPECT_EQ(Json(5).StringOr(L"other"), L"other");
}

TEST(JsonValue, WritingTurnsAnythingIntoTheContainerAskedAlsoOutOfItself) {
  Json value = "text";
  value["a"]["b"] = 1;
  EXPECT_EQ(value.Dump(false), "{\"a\":{\"b\":1}}");
  value["a"].Append(2);
  EXPECT_EQ(value.Dump(false), "{\"a\":[2]}");
  value["a"].Append(value);
  EXPECT_EQ(value.Dump(false), "{\"a\":[2,{\"a\":[2]}]}");
  value = value.Get("a").At(1);
  EXPECT_EQ(value.Dump(false), "{\"a\":[2]}");
  Json own = "a text longer than the value itself";
  own[own.text()] = 1;
  EXPECT_EQ(own.KeyAt(0), "a text longer than the value itself");
}

// Texts inside the value and outside, copied whole and in parts.
TEST(JsonValue, TextsOfEveryLengthWithAnEscapeAtEveryPlace) {
  for (std::size_t length = 0; length < 40; ++length) {
    for (std::size_t place = 0; place <= length; ++place) {
      std::string text(length + 1, 'x');
      text[place] = '\n';
      Json object;
      object[text] = text;
      const Json again = Parsed(object.Dump(false));
      EXPECT_EQ(again.Get(text).text(), text);
      EXPECT_EQ(again.KeyAt(0), text);
    }
  }
}

}  // namespace
}  // namespace kestrelon

#include "config/json.h"

#include <gtest/gtest.h>

#include "base/text.h"

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
  struct Row {
    std::string text;
    const char* error;
  };
  const Row rows[] = {
      {"", "unexpected end of input"},
      {" \t\r\n", "unexpected end of input"},
      {"[", "unexpected end of input"},
      {"[1,", "unexpected end of input"},
      {"{\"a\":", "unexpected end of input"},
      {"{", "expected object key"},
      {"{\"a\":1,}", "expected object key"},
      {"{1:2}", "expected object key"},
      {"{\"a\\x\":1}", "bad escape"},
      {"{\"a", "unterminated string"},
      {"{\"a\" 1}", "expected ':'"},
      {"{\"a\"", "expected ':'"},
      {"{\"a\":1", "expected ',' or '}'"},
      {"{\"a\":1]", "expected ',' or '}'"},
      {"[1", "expected ',' or ']'"},
      {"[1 2]", "expected ',' or ']'"},
      {"[1}", "expected ',' or ']'"},
      {"[truex]", "expected ',' or ']'"},
      {"[1,]", "unexpected character"},
      {"[,]", "unexpected character"},
      {"nul", "unexpected character"},
      {"True", "unexpected character"},
      {"+1", "unexpected character"},
      {".5", "unexpected character"},
      {"\v1", "unexpected character"},
      {"\0"s, "unexpected character"},
      {"\xEF\xBB\xBF{}", "unexpected character"},
      {"01", "bad number (leading zero)"},
      {"-00", "bad number (leading zero)"},
      {"-", "bad number"},
      {"--1", "bad number"},
      {"1.", "bad number"},
      {"1.e5", "bad number"},
      {"1e", "bad number"},
      {"1e+", "bad number"},
      {"1e999", "number out of range"},
      {"-1e999", "number out of range"},
      {"1e99999999999999999999", "number out of range"},
      {"0.00001e99999", "number out of range"},
      {"1.7976931348623159e308", "number out of range"},
      {Repeat("9", 310), "number out of range"},
      {"\"abc", "unterminated string"},
      {"\"abc\\", "unterminated string"},
      {"\"abcdefgh\n\"", "unescaped control character in string"},
      {"\"\\n\x1F\"", "unescaped control character in string"},
      {"\"\0\""s, "unescaped control character in string"},
      {"\"\\a\"", "bad escape"},
      {"\"\\U0041\"", "bad escape"},
      {"\"\\u004\"", "bad \\u escape"},
      {"\"\\u004", "bad \\u escape"},
      {"\"\\u00g0\"", "bad \\u escape"},
      {"\"\\ud83d\"", "lone surrogate"},
      {"\"\\ud83dx\"", "lone surrogate"},
      {"\"\\ud83d\\n00000\"", "lone surrogate"},
      {"\"\\ud83d\\u00", "lone surrogate"},
      {"\"\\ude00\"", "lone surrogate"},
      {"\"\\ud83d\\u0041\"", "bad surrogate pair"},
      {"\"\\ud83d\\ud83d\"", "bad surrogate pair"},
      {"\"\\ud83d\\uzzzz\"", "bad surrogate pair"},
      {"true false", "trailing characters"},
      {"truex", "trailing characters"},
      {"{}\0"s, "trailing characters"},
      {Repeat("[", 66) + Repeat("]", 66), "nesting too deep"},
      {Repeat("[", 66), "nesting too deep"},
      {Repeat("[", 65) + "1" + Repeat("]", 65), "nesting too deep"},
      {Repeat("{\"a\":", 65) + "1" + Repeat("}", 65), "nesting too deep"},
  };
  for (const Row& row : rows) {
    Json value = "before";
    std::string error;
    EXPECT_FALSE(Json::Parse(row.text, value, &error)) << row.text;
    EXPECT_EQ(error, row.error) << row.text;
    EXPECT_EQ(value.text(), "before") << row.text;
    EXPECT_FALSE(Json::Parse(row.text, value));
  }
}

TEST(JsonParse, ValuesAreWrittenInOneForm) {
  struct Row {
    std::string text;
    std::string compact;
  };
  const Row rows[] = {
      {" null ", "null"},
      {"[true,false]", "[true,false]"},
      {"\t[ ]\r\n", "[]"},
      {"{ }", "{}"},
      {"{ \"a\" : [ 1 , { } ] , \"\" : null }", "{\"a\":[1,{}],\"\":null}"},
      {"{\"a\":1,\"b\":2,\"a\":3}", "{\"a\":3,\"b\":2}"},
      {"{\"a\":{\"x\":1},\"b\":2,\"a\":3,\"b\":4,\"a\":[]}", "{\"a\":[],\"b\":4}"},
      {"-0", "0"},
      {"-0.0", "0"},
      {"-0e5", "0"},
      {"9223372036854775807", "9223372036854775807"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"9223372036854775808", "9.2233720368547758e+18"},
      {"-9223372036854775809", "-9.2233720368547758e+18"},
      {"1.0", "1"},
      {"-3.0e2", "-300"},
      {"1e15", "1000000000000000"},
      {"999999999999999.0", "999999999999999"},
      {"1E+17", "1e+17"},
      {"1e16", "10000000000000000"},
      {"0.1", "0.10000000000000001"},
      {"-2.5", "-2.5"},
      {"1e-5", "1.0000000000000001e-05"},
      {"1e-999", "0"},
      {"-1e-99999999999999999999", "0"},
      {"0e99999", "0"},
      {"5e-324", "4.9406564584124654e-324"},
      {"1.7976931348623157e308", "1.7976931348623157e+308"},
      {"0." + Repeat("0", 400) + "1e401", "1"},
      {"\"\"", "\"\""},
      {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "\"\\\"\\\\/\\u0008\\u000c\\n\\r\\t\""},
      {"\"\\u0041\\u00e9\\u20AC\"", "\"A\xC3\xA9\xE2\x82\xAC\""},
      {"\"\\ud83d\\uDE00\"", "\"\xF0\x9F\x98\x80\""},
      {"\"\\u0000\\u001f\x7F\"", "\"\\u0000\\u001f\x7F\""},
      {"\"\xFF\xC0 stays\"", "\"\xFF\xC0 stays\""},
      {"\"0123456789abcdef\\\"0123456789abcdef\\\"\"",
       "\"0123456789abcdef\\\"0123456789abcdef\\\"\""},
      {Repeat("[", 65) + Repeat("]", 65), Repeat("[", 65) + Repeat("]", 65)},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(Parsed(row.text).Dump(false), row.compact) << row.text;
    EXPECT_EQ(Parsed(row.compact).Dump(false), row.compact) << row.text;
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

TEST(JsonParse, IntegersAreHeldExactlyAndAlsoAsDoubles) {
  const Json exact = Parsed("9007199254740993");
  EXPECT_TRUE(exact.is_integer());
  EXPECT_EQ(exact.integer(), 9007199254740993);
  EXPECT_EQ(exact.floating(), 9007199254740992.0);
  const Json floating = Parsed("7.0");
  EXPECT_FALSE(floating.is_integer());
  EXPECT_EQ(floating.integer(), 0);
  EXPECT_EQ(floating.floating(), 7.0);
}

TEST(JsonValue, WholeNumbers) {
  for (const char* whole : {"5", "-5.0", "1e3", "9223372036854775807", "9.1e18"}) {
    EXPECT_TRUE(Parsed(whole).IsWholeNumber()) << whole;
  }
  for (const char* other : {"5.5", "9.2e18", "9223372036854775808", "-1e300", "\"5\"", "true"}) {
    EXPECT_FALSE(Parsed(other).IsWholeNumber()) << other;
  }
}

TEST(JsonValue, IsMadeFromWhatItHolds) {
  Json object;
  object["flag"] = true;
  object["small"] = 42;
  object["large"] = std::int64_t{1} << 62;
  object["narrow"] = "text";
  object["no text"] = static_cast<const char*>(nullptr);
  object["wide"] = L"\x20AC";
  object["empty"] = Json::Array();
  object["list"].Append(std::wstring(L"a"));
  object["list"].Append(Json::Object());
  EXPECT_EQ(object.Dump(false),
            "{\"flag\":true,\"small\":42,\"large\":4611686018427387904,\"narrow\":\"text\","
            "\"no text\":\"\",\"wide\":\"\xE2\x82\xAC\",\"empty\":[],\"list\":[\"a\",{}]}");
}

TEST(JsonValue, PrettyFormIndentsByTwoAndKeepsEmptyContainersTogether) {
  EXPECT_EQ(
      Parsed("{\"a\":[1,[]],\"b\":{},\"c\":{\"d\":\"x\"}}").Dump(true),
      "{\n  \"a\": [\n    1,\n    []\n  ],\n  \"b\": {},\n  \"c\": {\n    \"d\": \"x\"\n  }\n}");
  EXPECT_EQ(Json(1).Dump(true), "1");
  const std::string deep = Parsed(Repeat("[", 20) + Repeat("]", 20)).Dump(true);
  EXPECT_NE(deep.find("[\n" + Repeat("  ", 19) + "[]\n" + Repeat("  ", 18) + "]"), deep.npos);
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

TEST(JsonValue, WritingTurnsAnythingIntoTheContainerAsked) {
  Json value = "text";
  value["a"]["b"] = 1;
  EXPECT_EQ(value.Dump(false), "{\"a\":{\"b\":1}}");
  value["a"].Append(2);
  EXPECT_EQ(value.Dump(false), "{\"a\":[2]}");
  Json own = "a text longer than the value itself";
  own[own.text()] = 1;
  EXPECT_EQ(own.KeyAt(0), "a text longer than the value itself");
}

TEST(JsonValue, CopiesStandAlone) {
  Json value = Parsed("{\"list\":[1,\"a text longer than the value itself\"],\"key\":\"short\"}");
  const Json copy = value;
  value["list"].Append(value);
  value["key"] = value["list"];
  EXPECT_EQ(copy.Dump(false),
            "{\"list\":[1,\"a text longer than the value itself\"],\"key\":\"short\"}");
  EXPECT_EQ(value.Get("key").At(2).Get("key").text(), "short");
  value = value.Get("list").At(1);
  EXPECT_EQ(value.text(), "a text longer than the value itself");
}

// Texts inside the value and outside, copied whole and in parts.
TEST(JsonValue, TextsOfEveryLengthWithAnEscapeAtEveryPlace) {
  for (std::size_t length = 0; length < 40; ++length) {
    for (std::size_t place = 0; place <= length; ++place) {
      const std::string before = Repeat("x", place);
      const std::string after = Repeat("y", length - place);
      const std::string text = before + "\n" + after;
      const Json value = text;
      EXPECT_EQ(value.Dump(false), "\"" + before + "\\n" + after + "\"");
      Json object;
      object[text] = value;
      const Json again = Parsed(object.Dump(false));
      EXPECT_EQ(again.Get(text).text(), text);
      EXPECT_EQ(again.KeyAt(0), text);
    }
    EXPECT_EQ(Json(Repeat("x", length)).Dump(false), "\"" + Repeat("x", length) + "\"");
  }
}

}  // namespace
}  // namespace kestrelon

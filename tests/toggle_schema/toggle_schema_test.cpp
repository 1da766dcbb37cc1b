#include "toggle_schema/toggle_schema.h"

#include <gtest/gtest.h>

#include "toggle_schema/schema_json.h"

namespace feature_toggle {
namespace {

const std::string kEmpty = R"({"git_revision":"","variables":[]})";

std::string Variable(const std::string& key, const std::string& value,
                     const std::string& description = "", const std::string& options = "") {
  return R"({"key":")" + key + R"(","value":")" + value + R"(","description":")" + description +
         R"(","options":[)" + options + "]}";
}

std::string Schema(const std::string& revision, const std::string& variables) {
  return R"({"git_revision":")" + revision + R"(","variables":[)" + variables + "]}";
}

TEST(SchemaJson, ReadsEveryTextAndWritesItBack) {
  const struct {
    std::string text, written;
  } rows[] = {
      // Both forms, member order, white space, unknown and repeated members.
      {R"({"variables":[]})", kEmpty},
      {"[]", kEmpty},
      {" \n{ \"variables\" : [ {\"value\":\"1\" ,\t\"key\":\"B\"},{\"key\":\"A\"} ] }\r\n",
       Schema("", Variable("A", "") + "," + Variable("B", "1"))},
      {R"([{"key":"K","value":"v","options":["1","0","1"],"description":"d"}])",
       Schema("", Variable("K", "v", "d", R"("1","0","1")"))},
      {R"([{"value":"no key","options":["o"]}])", Schema("", Variable("", "no key", "", R"("o")"))},
      {R"({"x":{"key":[1e3,null]},"git_revision":"r","variables":[{"key":"K","x":true}]})",
       Schema("r", Variable("K", ""))},
      {R"([{"key":"K","value":"first","value":"second"}])", Schema("", Variable("K", "first"))},
      {R"([{"key":"K","value":"1","options":["o"],"description":"d"},{"key":"K","value":"2"}])",
       Schema("", Variable("K", "2"))},
      {R"([{"key":"a"},{"key":"Zeta"},{"key":"\u00e9"},{"key":"AB"},{"key":"A"}])",
       Schema("", Variable("A", "") + "," + Variable("AB", "") + "," + Variable("Zeta", "") + "," +
                      Variable("a", "") + "," + Variable("\xC3\xA9", ""))},
      // Escapes, bytes that are no UTF-8, NUL in a string and in the text.
      {R"([{"key":"K","value":"\"\\\/\b\f\n\r\t\u001f\u007f\u00fc"}])",
       Schema("", Variable("K", "\\\"\\\\/\\b\\f\\n\\r\\t\\u001F\x7F\xC3\xBC"))},
      {"[{\"key\":\"\xFF\xFE\"}]", Schema("", Variable("\xFF\xFE", ""))},
      {R"([{"key":"K\u0000x","value":"v\u0000w"}])", Schema("", Variable("K", "v"))},
      {std::string("[{\"key\":\"K\"}]\0garbage", 21), Schema("", Variable("K", ""))},
      // Not one JSON value, or neither object nor array: nothing.
      {"", kEmpty},
      {R"([{"key":"K"},])", kEmpty},
      {R"([{"key":"K"}] x)", kEmpty},
      {R"(/**/[{"key":"K"}])", kEmpty},
      {R"([{"key":"\ud800"}])", kEmpty},
      {"null", kEmpty},
      {"\"text\"", kEmpty},
      {"17", kEmpty},
      // A wrong piece costs that piece only.
      {R"({"git_revision":"r"})", Schema("r", "")},
      {R"({"git_revision":"r","variables":{"key":"K"}})", Schema("r", "")},
      {R"({"git_revision":1,"variables":[{"key":"K"}]})", Schema("", Variable("K", ""))},
      {R"([null,1,"K",["K"],{"key":1},{"key":null},{"key":"V","value":true},{"key":"K"}])",
       Schema("", Variable("K", ""))},
      {R"([{"key":"K","options":"on","description":{}}])", Schema("", Variable("K", ""))},
      {R"([{"key":"K","options":["a",1,null,["x"],"b"]}])",
       Schema("", Variable("K", "", "", R"("a","b")"))},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(SerializeToggleSchema(ParseToggleSchema(row.text)), row.written);
    EXPECT_EQ(SerializeToggleSchema(ParseToggleSchema(row.written)), row.written);
  }
}

TEST(SchemaJson, ReadsNestingThatIsDeeperThanTheStack) {
  constexpr int kLevels = 5'000'000;
  const std::string deep = R"({"git_revision":"r","x":)" + std::string(kLevels, '[') +
                           std::string(kLevels, ']') + R"(,"variables":[{"key":"K"}]})";
  EXPECT_EQ(SerializeToggleSchema(ParseToggleSchema(deep)), Schema("r", Variable("K", "")));
  EXPECT_EQ(ReadGitRevision(deep), "r");
}

TEST(SchemaJson, ReadsTheBuildRevision) {
  const struct {
    const char *text, *revision;
  } rows[] = {
      {R"({"x":1,"git_revision":"1a2b","y":[]})", "1a2b"},
      {R"({"git_revision":"a\u0000b"})", "a"},
      {"{}", ""},
      {R"({"git_revision":7})", ""},
      {R"(["git_revision"])", ""},
      {"", ""},
      {R"({"git_revision":"r"},)", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(ReadGitRevision(row.text), row.revision) << row.text;
}

TEST(ToggleSchema, SetsOneToggleAndMergesTwoDocuments) {
  ToggleSchema primary;
  SetToggle(primary, "Q", "2");
  SetToggle(primary, "P", "1");
  primary.variables["Q"].options = {"2", "3"};
  primary.variables["Q"].description = "d";
  ToggleSchema secondary = primary;
  SetToggle(secondary, "Q", "");
  SetToggle(secondary, "R", "3");
  secondary.variables.erase("P");

  EXPECT_EQ(SerializeToggleSchema(secondary),
            Schema("", Variable("Q", "", "d", R"("2","3")") + "," + Variable("R", "3")));
  EXPECT_EQ(primary.variables["Q"].value, "2");
  EXPECT_EQ(EffectiveValues(primary, secondary),
            (std::map<std::string, std::string>{{"P", "1"}, {"Q", ""}, {"R", "3"}}));
}

}  // namespace
}  // namespace feature_toggle

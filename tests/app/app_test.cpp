#include <gtest/gtest.h>

#include <CLI/CLI.hpp>

#include "app/export_script.h"
#include "app/settings.h"

namespace feature_toggle {
namespace {

using Variables = std::map<std::string, std::string>;

// The settings as one line, for the given environment and command line.
std::string Parse(const Variables& environment, const std::string& command_line) {
  for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
  CLI::App app;
  Settings s;
  BindSettings(app, s);
  app.parse(command_line);
  for (const auto& [name, value] : environment) unsetenv(name.c_str());
  std::ostringstream line;
  line << s.build_info_path << "|" << s.primary_schema_path << "|" << s.secondary_schema_path << "|"
       << s.output_path << "|" << s.port << "|" << s.hostname << "|" << s.preserve_configuration
       << s.list << s.reset;
  for (const std::string& text : s.entry) line << "|" << text;
  return line.str();
}

TEST(Settings, CommandLineBeforeEnvironmentBeforeDefault) {
  EXPECT_EQ(
      Parse({}, ""),
      "/build_info.json|/etc/primary_feature_toggle.conf|"
      "/var/rwfs2/secondary_feature_toggle.json|/var/rwfs2/feature_toggle.sh|-1|127.0.0.1|000");
  const Variables environment = {
      {"FEATURE_TOGGLE_BUILD_INFO_PATH", "b"},       {"FEATURE_TOGGLE_PRIMARY_SCHEMA_PATH", "r"},
      {"FEATURE_TOGGLE_SECONDARY_SCHEMA_PATH", "s"}, {"FEATURE_TOGGLE_OUTPUT_PATH", "  o x"},
      {"FEATURE_TOGGLE_HTTP_PORT", "9000"},          {"FEATURE_TOGGLE_HOSTNAME", "n"},
      {"FEATURE_TOGGLE_PRESERVE_CONFIGURATION", "7"}};
  EXPECT_EQ(Parse(environment, ""), "b|r|s|o|9000|n|700");
  EXPECT_EQ(Parse(environment, "-b B -r R -s S -o O -p 9100 -n N -l -x --entry K V"),
            "B|R|S|O|9100|N|711|K|V");
  EXPECT_EQ(Parse(environment,
                  "--build_info_path B --primary_schema_path R "
                  "--secondary_schema_path S --output_path O --port 9100 "
                  "--hostname N --list --reset --entry K V"),
            "B|R|S|O|9100|N|711|K|V");
}

TEST(Settings, ReadsTheEnvironmentLeniently) {
  const struct {
    const char* text;
    int number;
    const char* word;
  } rows[] = {{"8080x", 8080, "8080x"},
              {"abc", 0, "abc"},
              {"", -1, "default"},
              {" \t\n", -1, "default"},
              {" 8081 9", 8081, "8081"},
              {"0x1F", 0, "0x1F"},
              {"99999999999", 2147483647, "99999999999"},
              {"-99999999999", -2147483647 - 1, "-99999999999"},
              {"+5", 5, "+5"}};
  for (const auto& row : rows) {
    setenv("FEATURE_TOGGLE_TEST", row.text, 1);
    EXPECT_EQ(GetEnvOrDefault("FEATURE_TOGGLE_TEST", -1), row.number) << row.text;
    EXPECT_EQ(GetEnvOrDefault<std::string>("FEATURE_TOGGLE_TEST", "default"), row.word);
  }
  unsetenv("FEATURE_TOGGLE_TEST");
  EXPECT_EQ(GetEnvOrDefault("FEATURE_TOGGLE_TEST", -1), -1);
}

TEST(ExportScript, WritesWhatNeedsNoQuotingAsItIs) {
  EXPECT_EQ(RenderExportScript({}), "");
  EXPECT_EQ(
      RenderExportScript({{"", "v"}, {"A B", "v"}, {"C", ""}, {"D", "two words"}, {"E", " "}}), "");
  EXPECT_EQ(
      RenderExportScript({{"a", "1"}, {"Zeta", "$x\t'\"\n="}, {"AB", "\xC3\xBC"}, {"A", "0"}}),
      "export A=0\nexport AB=\xC3\xBC\nexport Zeta=$x\t'\"\n=\nexport a=1\n");
}

}  // namespace
}  // namespace feature_toggle

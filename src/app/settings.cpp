#include "app/settings.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <sstream>

namespace feature_toggle {
namespace {

template <typename T>
T GetEnvOrDefault(const std::string& name, T default_value) {
  const char* text = std::getenv(name.c_str());
  if (text == nullptr) return default_value;
  std::istringstream stream(text);
  T value = default_value;
  stream >> value;
  return value;
}

}  // namespace

void BindSettings(CLI::App& app, Settings& settings) {
  const auto bind = [&app](auto& value, const char* names, const char* variable, const char* help) {
    value = GetEnvOrDefault(variable, value);
    app.add_option(names, value, help);
  };

  settings.preserve_configuration =
      GetEnvOrDefault("FEATURE_TOGGLE_PRESERVE_CONFIGURATION", settings.preserve_configuration);
  bind(settings.build_info_path, "-b, --build_info_path", "FEATURE_TOGGLE_BUILD_INFO_PATH",
       "Full path of the build info file.");
  bind(settings.primary_schema_path, "-r, --primary_schema_path",
       "FEATURE_TOGGLE_PRIMARY_SCHEMA_PATH", "Full path for the primary feature toggle schema.");
  bind(settings.secondary_schema_path, "-s, --secondary_schema_path",
       "FEATURE_TOGGLE_SECONDARY_SCHEMA_PATH",
       "Full path for the secondary feature toggle schema.");
  bind(settings.output_path, "-o, --output_path", "FEATURE_TOGGLE_OUTPUT_PATH",
       "Full path for the feature toggle output file.");
  bind(settings.port, "-p, --port", "FEATURE_TOGGLE_HTTP_PORT", "HTTP port to use.");
  bind(settings.hostname, "-n, --hostname", "FEATURE_TOGGLE_HOSTNAME", "HTTP hostname.");
  app.add_flag("-l, --list", settings.list, "List current feature toggle values");
  app.add_flag("-x, --reset", settings.reset, "Reset the variables to their default values");
  app.add_option("--entry", settings.entry, "key & value")->expected(2);
}

}  // namespace feature_toggle

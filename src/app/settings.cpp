#include "app/settings.h"

#include <CLI/CLI.hpp>

namespace feature_toggle {

void BindSettings(CLI::App& app, Settings& settings) {
  const auto bind = [&app](auto& value, const char* names, const char* variable, auto default_value,
                           const char* help) {
    value = GetEnvOrDefault(variable, std::decay_t<decltype(value)>(default_value));
    app.add_option(names, value, help);
  };

  settings.preserve_configuration = GetEnvOrDefault("FEATURE_TOGGLE_PRESERVE_CONFIGURATION", 0);
  bind(settings.build_info_path, "-b, --build_info_path", "FEATURE_TOGGLE_BUILD_INFO_PATH",
       "/build_info.json", "Full path of the build info file.");
  bind(settings.primary_schema_path, "-r, --primary_schema_path",
       "FEATURE_TOGGLE_PRIMARY_SCHEMA_PATH", "/etc/primary_feature_toggle.conf",
       "Full path for the primary feature toggle schema.");
  bind(settings.secondary_schema_path, "-s, --secondary_schema_path",
       "FEATURE_TOGGLE_SECONDARY_SCHEMA_PATH", "/var/rwfs2/secondary_feature_toggle.json",
       "Full path for the secondary feature toggle schema.");
  bind(settings.output_path, "-o, --output_path", "FEATURE_TOGGLE_OUTPUT_PATH",
       "/var/rwfs2/feature_toggle.sh", "Full path for the feature toggle output file.");
  bind(settings.port, "-p, --port", "FEATURE_TOGGLE_HTTP_PORT", -1, "HTTP port to use.");
  bind(settings.hostname, "-n, --hostname", "FEATURE_TOGGLE_HOSTNAME", "127.0.0.1",
       "HTTP hostname.");
  app.add_flag("-l, --list", settings.list, "List current feature toggle values");
  app.add_flag("-x, --reset", settings.reset, "Reset the variables to their default values");
  app.add_option("--entry", settings.entry, "key & value")->expected(2);
}

}  // namespace feature_toggle

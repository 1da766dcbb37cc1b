#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace feature_toggle {

/// The settings of one run, with their defaults.
struct Settings {
  std::string build_info_path = "/build_info.json";
  std::string primary_schema_path = "/etc/primary_feature_toggle.conf";
  std::string secondary_schema_path = "/var/rwfs2/secondary_feature_toggle.json";
  std::string output_path = "/var/rwfs2/feature_toggle.sh";
  int port = -1;  ///< The page is served only if this is greater than 0.
  std::string hostname = "127.0.0.1";
  int preserve_configuration = 0;  ///< If not 0, the stored build revision is kept.
  bool list = false;
  bool reset = false;
  std::vector<std::string> entry;  ///< Empty, or a key and a value.
};

/// Replaces every setting whose environment variable is set, and adds the options to `app`, which
/// writes into `settings` when it is parsed. The order of precedence is therefore: command line,
/// environment, default. Variables are read leniently, as feature_toggled(8) says. Not thread-safe.
void BindSettings(CLI::App& app, Settings& settings);

}  // namespace feature_toggle

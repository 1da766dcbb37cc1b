#pragma once

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace feature_toggle {

/// What one run is told, with the built-in defaults.
struct Settings {
  std::string build_info_path = "/build_info.json";
  std::string primary_schema_path = "/etc/primary_feature_toggle.conf";
  std::string secondary_schema_path = "/var/rwfs2/secondary_feature_toggle.json";
  std::string output_path = "/var/rwfs2/feature_toggle.sh";
  int port = -1;  ///< No service is started unless it is greater than 0.
  std::string hostname = "127.0.0.1";
  int preserve_configuration = 0;  ///< Any value but 0 keeps the stored build revision.
  bool list = false;
  bool reset = false;
  std::vector<std::string> entry;  ///< Empty, or a key and its value.
};

/// The environment variable `name` as a `T`, read leniently as `operator>>` reads it: a text ends
/// at its first blank, a number at its first other character; no number is 0, one out of range the
/// nearest. A variable that is not set or is blank gives `default_value`. getenv(3) must not run
/// beside a change of the environment.
template <typename T>
T GetEnvOrDefault(const std::string& name, T default_value) {
  const char* text = std::getenv(name.c_str());
  if (text == nullptr) return default_value;
  std::istringstream stream(text);
  T value = default_value;
  stream >> value;
  return value;
}

/// Replaces every setting whose environment variable is set by its value, and registers the options
/// of `app`, whose parse then overrides them. The order of precedence is therefore: command line,
/// environment, default. `app` writes into `settings`, which must outlive its parse.
void BindSettings(CLI::App& app, Settings& settings);

}  // namespace feature_toggle

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <string>

#include "app/export_script.h"
#include "app/heap.h"
#include "app/settings.h"
#include "file_access/directory_lock.h"
#include "file_access/file_loader.h"
#include "file_access/file_saver.h"
#include "http_service/feature_toggle_http.h"
#include "toggle_schema/schema_json.h"
#include "toggle_schema/toggle_schema.h"

// The start-up sequence. File failures are not reported, and the exit status is 0 after them: a
// file that cannot be read counts as empty, and a file that cannot be written stays as it is.
int main(int argc, char** argv) {
  using namespace feature_toggle;

  // A write to a closed pipe, or beyond the file-size limit, fails instead of killing the process.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);

  CLI::App app("Feature Toggle Daemon");
  Settings settings;
  BindSettings(app, settings);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  }

  // Load.
  const auto parse_into = [](ToggleSchema& target) {
    return [&target](const std::string& text) { target = ParseToggleSchema(text); };
  };
  file_utils::FileLoader loader;
  ToggleSchema primary;
  loader.Load(settings.primary_schema_path, parse_into(primary), nullptr);
  std::string build_revision;
  if (settings.preserve_configuration == 0) {
    loader.Load(
        settings.build_info_path,
        [&build_revision](const std::string& text) { build_revision = ReadGitRevision(text); },
        nullptr);
  }
  // The lock keeps concurrent runs apart until both files are saved.
  file_utils::DirectoryLock lock(settings.secondary_schema_path);
  ToggleSchema secondary;
  if (!settings.reset) {
    loader.Load(settings.secondary_schema_path, parse_into(secondary), nullptr);
  }

  // Bring up to date.
  if (!build_revision.empty()) secondary.git_revision = build_revision;
  if (!settings.entry.empty()) {
    const std::string& key = settings.entry[0];
    const std::string& value = settings.entry[1];
    if (!key.empty() && !value.empty()) SetToggle(secondary, key, value);
  }

  // Save and publish.
  file_utils::FileSaver saver;
  saver.Save(settings.secondary_schema_path, SerializeToggleSchema(secondary), nullptr);
  const std::string export_script = RenderExportScript(EffectiveValues(primary, secondary));
  if (settings.list) std::cout << export_script << '\n' << std::flush;
  saver.Save(settings.output_path, export_script, nullptr);
  lock.Unlock();

  // Serve.
  const bool serve = settings.port > 0 && settings.entry.empty();
  if (serve) {
    FeatureToggleHTTP service(settings.secondary_schema_path);
    service.SetPrimarySchema(primary);
    service.SetSecondarySchema(secondary);
    primary = {};  // The service has copies.
    secondary = {};
    ReturnFreedMemory();
    service.Listen(settings.hostname, settings.port);
  }
  return 0;
}

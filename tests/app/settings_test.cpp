#include "app/settings.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>

// No run shows the default paths without writing to the machine's own files.
TEST(Settings, HaveDefaults) {
  CLI::App app;
  feature_toggle::Settings settings;
  feature_toggle::BindSettings(app, settings);
  EXPECT_EQ(settings.build_info_path, "/build_info.json");
  EXPECT_EQ(settings.primary_schema_path, "/etc/primary_feature_toggle.conf");
  EXPECT_EQ(settings.secondary_schema_path, "/var/rwfs2/secondary_feature_toggle.json");
  EXPECT_EQ(settings.output_path, "/var/rwfs2/feature_toggle.sh");
  EXPECT_EQ(settings.hostname, "127.0.0.1");
  EXPECT_EQ(settings.port, -1);
}

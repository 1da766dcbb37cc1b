#pragma once

#include <memory>
#include <string>

#include "toggle_schema/toggle_schema.h"

namespace feature_toggle {

/// Serves the configuration page and its two actions, update and reboot, over HTTP.
///
/// The service keeps copies of both documents; set them before `Listen`. An update changes its copy
/// of the secondary one and saves it, without reading the file again. It thus discards what other
/// processes have saved there.
class IFeatureToggleHTTP {
 public:
  IFeatureToggleHTTP() = default;
  IFeatureToggleHTTP(const IFeatureToggleHTTP&) = delete;
  IFeatureToggleHTTP& operator=(const IFeatureToggleHTTP&) = delete;
  virtual ~IFeatureToggleHTTP() = default;

  /// Replaces the whole primary document.
  virtual void SetPrimarySchema(const ToggleSchema& schema) = 0;

  /// Replaces the whole secondary document.
  virtual void SetSecondarySchema(const ToggleSchema& schema) = 0;

  /// Serves until accepting connections fails, in practice until the process ends. If `host` does
  /// not resolve or `port` cannot be bound, returns at once without reporting it. The handlers run
  /// on max(2, hardware threads - 1) worker threads.
  virtual void Listen(const std::string& host, int port) = 0;
};

class FeatureToggleHTTP : public IFeatureToggleHTTP {
 public:
  /// Updates are saved to `secondary_schema_path`. Makes the whole process ignore SIGPIPE.
  explicit FeatureToggleHTTP(const std::string& secondary_schema_path);

  void SetPrimarySchema(const ToggleSchema& schema) override;
  void SetSecondarySchema(const ToggleSchema& schema) override;
  void Listen(const std::string& host, int port) override;

 private:
  std::unique_ptr<IFeatureToggleHTTP> impl_;
};

}  // namespace feature_toggle

#pragma once

#include <memory>
#include <string>

#include "toggle_schema/toggle_schema.h"

namespace feature_toggle {

/// Serves the configuration page and its two actions, update and reboot, over HTTP.
///
/// The service keeps copies of both documents. An update changes the copy of the secondary document
/// and saves it to the secondary schema file. It does not read that file again, so it discards what
/// other processes have saved there. Set both documents before `Listen`, not while it runs.
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

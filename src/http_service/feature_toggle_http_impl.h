#pragma once

#include <httplib.h>

#include <shared_mutex>
#include <string>

#include "http_service/feature_toggle_http.h"

namespace feature_toggle {

class FeatureToggleHTTPImpl : public IFeatureToggleHTTP {
 public:
  explicit FeatureToggleHTTPImpl(const std::string& secondary_schema_path);
  FeatureToggleHTTPImpl(const FeatureToggleHTTPImpl&) = delete;
  FeatureToggleHTTPImpl& operator=(const FeatureToggleHTTPImpl&) = delete;
  ~FeatureToggleHTTPImpl() override;

  void SetPrimarySchema(const ToggleSchema& schema) override;
  void SetSecondarySchema(const ToggleSchema& schema) override;
  void Listen(const std::string& host, int port) override;

  /// Returns the configuration page. Takes no lock, so it must not be called during `Listen`.
  std::string RenderPage() const;

 private:
  void ShowPage(httplib::Response& response) const;
  void Update(const httplib::Request& request, httplib::Response& response);
  static void Reboot(httplib::Response& response);

  std::string secondary_schema_path_;
  ToggleSchema primary_;
  ToggleSchema secondary_;
  /// Guards both documents during `Listen`: shared for pages, exclusive for updates.
  mutable std::shared_mutex mutex_;
  httplib::Server server_;
};

}  // namespace feature_toggle

#include "http_service/feature_toggle_http.h"

#include "http_service/feature_toggle_http_impl.h"

namespace feature_toggle {

FeatureToggleHTTP::FeatureToggleHTTP(const std::string& secondary_schema_path)
    : impl_(std::make_unique<FeatureToggleHTTPImpl>(secondary_schema_path)) {}

void FeatureToggleHTTP::SetPrimarySchema(const ToggleSchema& schema) {
  impl_->SetPrimarySchema(schema);
}

void FeatureToggleHTTP::SetSecondarySchema(const ToggleSchema& schema) {
  impl_->SetSecondarySchema(schema);
}

void FeatureToggleHTTP::Listen(const std::string& host, int port) { impl_->Listen(host, port); }

}  // namespace feature_toggle

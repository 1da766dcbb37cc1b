#include "app/export_script.h"

namespace feature_toggle {
namespace {

bool IsExportable(const std::string& text) {
  return !text.empty() && text.find(' ') == std::string::npos;
}

}  // namespace

std::string RenderExportScript(const std::map<std::string, std::string>& values) {
  std::string script;
  for (const auto& [key, value] : values) {
    if (IsExportable(key) && IsExportable(value)) {
      script.append("export ").append(key).append("=").append(value).append("\n");
    }
  }
  return script;
}

}  // namespace feature_toggle

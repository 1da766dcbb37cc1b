#include "toggle_schema/toggle_schema.h"

namespace feature_toggle {

void SetToggle(ToggleSchema& schema, const std::string& toggle_key,
               const std::string& toggle_value) {
  ToggleVariable& variable = schema.variables[toggle_key];
  variable.key = toggle_key;
  variable.value = toggle_value;
}

std::map<std::string, std::string> EffectiveValues(const ToggleSchema& primary,
                                                   const ToggleSchema& secondary) {
  std::map<std::string, std::string> values;
  // In key order, so each goes to the end: no look-up.
  for (const auto& [key, variable] : primary.variables) {
    values.emplace_hint(values.end(), key, variable.value);
  }
  for (const auto& [key, variable] : secondary.variables) values[key] = variable.value;
  return values;
}

}  // namespace feature_toggle

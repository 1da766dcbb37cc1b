#pragma once

#include <map>
#include <string>
#include <vector>

namespace feature_toggle {

/// One toggle. All texts are byte strings: any of them may be empty or hold any bytes, and no
/// encoding is checked.
struct ToggleVariable {
  std::string key;
  std::string value;
  std::vector<std::string> options;  ///< For people to read: no value is ever checked against them.
  std::string description;
};

/// One toggle document, the content of a schema file. A value type without locking: whoever shares
/// one between threads serialises access to it.
struct ToggleSchema {
  std::string git_revision;                         ///< Empty when the document carries none.
  std::map<std::string, ToggleVariable> variables;  ///< Each record stands under its own `key`.
};

/// Sets one toggle's value, adding a record without options or description if there is none.
void SetToggle(ToggleSchema& schema, const std::string& toggle_key,
               const std::string& toggle_value);

/// The values in force by key: every toggle of either document, the secondary value (an empty one
/// included) overriding the primary one.
std::map<std::string, std::string> EffectiveValues(const ToggleSchema& primary,
                                                   const ToggleSchema& secondary);

}  // namespace feature_toggle

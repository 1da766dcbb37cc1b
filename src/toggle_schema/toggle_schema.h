#pragma once

#include <map>
#include <string>
#include <vector>

namespace feature_toggle {

/// One toggle. Its texts are byte strings, which may be empty. No encoding is checked.
struct ToggleVariable {
  std::string key;
  std::string value;
  std::vector<std::string> options;  ///< For people to read; values are not checked against it.
  std::string description;
};

/// One toggle document, the content of a schema file. A value type without locking: threads that
/// share one must serialise access to it.
struct ToggleSchema {
  std::string git_revision;                         ///< Empty if the document has none.
  std::map<std::string, ToggleVariable> variables;  ///< Keyed by each record's `key`.
};

/// Sets the value of one toggle. A missing toggle is added, without options or description.
void SetToggle(ToggleSchema& schema, const std::string& toggle_key,
               const std::string& toggle_value);

/// Returns the effective value of every toggle of either document, by key. The secondary value,
/// even an empty one, overrides the primary one.
std::map<std::string, std::string> EffectiveValues(const ToggleSchema& primary,
                                                   const ToggleSchema& secondary);

}  // namespace feature_toggle

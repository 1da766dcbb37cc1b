#pragma once

#include <string>

#include "toggle_schema/toggle_schema.h"

namespace feature_toggle {

// The JSON text of schema and build-information files (RFC 8259, no extensions). None of these
// functions touches a file or keeps state; they may run on several threads at once.
//
// The readers never fail. A syntax error gives an empty result. A member of the wrong type costs
// only that member, or its variable if it is the key or the value. The file and each string in it
// end at their first NUL. The depth of nesting is limited by memory only, not by the stack.

/// Reads a schema: an object with "git_revision" and "variables", or just the array of variables.
/// Any other text gives an empty document. If a key is repeated, the last variable counts. A
/// variable that is no object is skipped, and so is an option that is no string.
ToggleSchema ParseToggleSchema(const std::string& text);

/// Returns the "git_revision" of a build-information text, or an empty string if there is none.
std::string ReadGitRevision(const std::string& text);

/// Returns the schema as compact JSON: one line without a line end, every member present, toggles
/// in key order. `ParseToggleSchema` reads it back equal, but each text ends at its first NUL.
std::string SerializeToggleSchema(const ToggleSchema& schema);

}  // namespace feature_toggle

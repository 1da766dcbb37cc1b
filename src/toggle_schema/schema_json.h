#pragma once

#include <string>

#include "toggle_schema/toggle_schema.h"

namespace feature_toggle {

// The JSON text of schema and build-information files (RFC 8259, no extensions). None of these
// functions touches a file or keeps state; they may run on several threads at once.
//
// The readers are total: every text gives a result, and what is wrong in a text costs no more than
// the wrong piece. Texts end at their first NUL, in the JSON text as in each string of it. The
// depth of nesting is limited by memory only, not by the stack.

/// Reads a schema: an object with "git_revision" and "variables", or the bare array of variables.
/// A text that is neither gives an empty document. Of variables with the same key the last one
/// counts. A variable that is no object, or whose "key" or "value" is no string, is skipped; any
/// other member of the wrong type, and any option that is no string, is read as if absent.
ToggleSchema ParseToggleSchema(const std::string& text);

/// The "git_revision" of a build-information text; empty if there is none that is a string.
std::string ReadGitRevision(const std::string& text);

/// The schema as compact JSON on one line without a line end, every member present, toggles in key
/// order. `ParseToggleSchema` reads it back equal, save for what follows a NUL in a text.
std::string SerializeToggleSchema(const ToggleSchema& schema);

}  // namespace feature_toggle

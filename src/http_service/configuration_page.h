#pragma once

#include <map>
#include <string>

namespace feature_toggle {

/// Returns the HTML form that edits `values`: one text field for each, in key order, then "Submit",
/// which posts to "/update", and "Reboot", which posts to "/reboot". It is a single line without a
/// surrounding document. A browser shows and posts back each key and value unchanged, except for
/// line breaks, which a text field cannot hold.
std::string RenderConfigurationPage(const std::map<std::string, std::string>& values);

}  // namespace feature_toggle

#pragma once

#include <map>
#include <string>

namespace feature_toggle {

/// The HTML form that edits `values`: a text field for each, in key order, then "Submit", which
/// posts to "/update", and "Reboot", which posts to "/reboot". On one line, without a document
/// around it. A browser shows and posts back each key and value as it is, but for line breaks,
/// which a text field cannot hold.
std::string RenderConfigurationPage(const std::map<std::string, std::string>& values);

}  // namespace feature_toggle

#pragma once

#include <map>
#include <string>

namespace feature_toggle {

/// The shell script that publishes `values`: one line "export KEY=VALUE" each, in key order, with
/// nothing quoted or escaped. An entry whose key or value is empty or holds a space has no line;
/// every other byte is written as it is, so anyone who can set a value can run commands as any user
/// who sources the script.
std::string RenderExportScript(const std::map<std::string, std::string>& values);

}  // namespace feature_toggle

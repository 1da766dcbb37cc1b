#include "http_service/configuration_page.h"

#include <array>
#include <string_view>

namespace feature_toggle {
namespace {

// Replaces the characters that HTML reserves by character references, which a browser decodes.
std::string Escape(const std::string& text) {
  constexpr std::string_view reserved = "\"&<>";
  constexpr std::array references = {"&quot;", "&amp;", "&lt;", "&gt;"};
  std::string escaped;
  for (const char c : text) {
    const size_t i = reserved.find(c);
    if (i == std::string_view::npos) {
      escaped += c;
    } else {
      escaped += references[i];
    }
  }
  return escaped;
}

}  // namespace

std::string RenderConfigurationPage(const std::map<std::string, std::string>& values) {
  std::string page = R"(<form action="/update" method="post">)";
  for (const auto& [key, value] : values) {
    const std::string name = Escape(key);
    page += name + R"(: <input type="text" name=")" + name;
    page += R"(" value=")" + Escape(value) + R"("><br>)";
  }
  page += R"(<input type="submit" value="Submit"><br><br>)";
  page += R"(<input type="submit" formaction="/reboot" value="Reboot"></form>)";
  return page;
}

}  // namespace feature_toggle

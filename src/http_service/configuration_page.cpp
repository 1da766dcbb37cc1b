#include "http_service/configuration_page.h"

namespace feature_toggle {
namespace {

// The fixed pieces, in the order in which they stand on the page.
constexpr char kFormStart[] = R"(<form action="/update" method="post">)";
constexpr char kLabelEnd[] = ": ";
constexpr char kNameStart[] = R"(<input type="text" name=")";
constexpr char kValueStart[] = R"(" value=")";
constexpr char kFieldEnd[] = R"("><br>)";
constexpr char kFormEnd[] = R"(<input type="submit" value="Submit"><br><br>)"
                            R"(<input type="submit" formaction="/reboot" value="Reboot"></form>)";

// The characters that HTML reserves as character references, which a browser decodes.
std::string EscapeHtml(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '"':
        escaped += "&quot;";
        break;
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

}  // namespace

std::string RenderConfigurationPage(const std::map<std::string, std::string>& values) {
  std::string page = kFormStart;
  for (const auto& [key, value] : values) {
    const std::string name = EscapeHtml(key);
    page.append(name).append(kLabelEnd);
    page.append(kNameStart).append(name);
    page.append(kValueStart).append(EscapeHtml(value)).append(kFieldEnd);
  }
  return page.append(kFormEnd);
}

}  // namespace feature_toggle

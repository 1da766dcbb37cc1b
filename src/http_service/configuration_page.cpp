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
void AppendEscaped(std::string& page, const std::string& text) {
  for (const char c : text) {
    switch (c) {
      case '"':
        page.append("&quot;");
        break;
      case '&':
        page.append("&amp;");
        break;
      case '<':
        page.append("&lt;");
        break;
      case '>':
        page.append("&gt;");
        break;
      default:
        page.push_back(c);
    }
  }
}

}  // namespace

std::string RenderConfigurationPage(const std::map<std::string, std::string>& values) {
  std::string page = kFormStart;
  for (const auto& [key, value] : values) {
    const size_t name = page.size();
    AppendEscaped(page, key);
    const size_t length = page.size() - name;
    page.append(kLabelEnd).append(kNameStart).append(page, name, length);
    page.append(kValueStart);
    AppendEscaped(page, value);
    page.append(kFieldEnd);
  }
  return page.append(kFormEnd);
}

}  // namespace feature_toggle

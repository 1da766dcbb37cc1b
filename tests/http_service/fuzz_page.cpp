// Any keys and values: the fields of the page, decoded, are the values in force, and posting them
// back changes nothing. The input is keys and values in turn, each ended by a NUL.
#include <thread>

#include "http_service/feature_toggle_http_impl.h"

namespace {

constexpr int kPort = 18099;

void Require(bool condition) {
  if (!condition) std::abort();
}

// Takes from `page` what stands before `end`, as a browser reads it. A character that should have
// been escaped is a fault.
std::string Take(std::string& page, const std::string& end) {
  std::string text = page.substr(0, page.find(end));
  Require(text.size() < page.size() && text.find_first_of("\"<>") == std::string::npos);
  page.erase(0, text.size() + end.size());
  for (size_t at = 0; (at = text.find('&', at)) != std::string::npos; ++at) {
    const std::string name = text.substr(at + 1, text.find(';', at) - at - 1);
    Require(name == "quot" || name == "amp" || name == "lt" || name == "gt");
    const char* character = name == "quot" ? "\"" : name == "amp" ? "&" : name == "lt" ? "<" : ">";
    text.replace(at, name.size() + 2, character);
  }
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
  using namespace feature_toggle;
  static auto& service = *new FeatureToggleHTTPImpl("/nonexistent/secondary");
  static auto& server = *new std::thread([] { service.Listen("127.0.0.1", kPort); });
  ToggleSchema schemas[2];
  std::istringstream input(std::string(data, size));
  std::string key, value;
  for (bool second = false; std::getline(input, key, '\0'); second = !second) {
    std::getline(input, value, '\0');
    SetToggle(schemas[second], key, value);
  }
  service.SetPrimarySchema(schemas[0]);
  service.SetSecondarySchema(schemas[1]);

  const std::string page = service.RenderPage();
  std::string rest = page, form;
  Require(Take(rest, "<form action=\"/update\" method=\"post\">").empty());
  for (const auto& [name, text] : EffectiveValues(schemas[0], schemas[1])) {
    Require(Take(rest, ": <input type=\"text\" name=\"") == name);
    Require(Take(rest, "\" value=\"") == name);
    Require(Take(rest, "\"><br>") == text);
    using httplib::detail::encode_query_param;
    if (name.empty()) continue;  // HTML has a browser leave out a field without a name
    form += encode_query_param(name) + "=" + encode_query_param(text) + "&";
  }
  static httplib::Client browser("127.0.0.1", kPort);
  httplib::Result answer(nullptr, httplib::Error::Unknown);
  while (!answer && server.joinable()) {  // the first time, it may not listen yet
    answer = browser.Post("/update", form, "application/x-www-form-urlencoded");
  }
  Require(answer->status == 413 || (answer->status == 200 && answer->body == page));
  return 0;
}

// The input is keys and values in turn, each ended by a NUL. The fields of the page, decoded as a
// browser does, must show the effective values, and posting them back must change nothing.
#include <unistd.h>

#include <regex>
#include <thread>

#include "http_service/feature_toggle_http_impl.h"

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
  using namespace feature_toggle;
  static auto& service = *new FeatureToggleHTTPImpl("/nonexistent/secondary");
  static const int port = 20000 + getpid() % 10000;  // two may run at once
  static auto& server = *new std::thread([] { service.Listen("127.0.0.1", port); });
  static httplib::Client browser("127.0.0.1", port);
  while (server.joinable() && !browser.Get("/")) continue;  // until it listens

  ToggleSchema schemas[2];
  std::istringstream input(std::string(data, size));
  std::string key, value, shown, form;
  for (bool second = false; std::getline(input, key, '\0'); second = !second) {
    std::getline(input, value, '\0');
    SetToggle(schemas[second], key, value);
  }
  service.SetPrimarySchema(schemas[0]);
  service.SetSecondarySchema(schemas[1]);
  for (const auto& [name, text] : EffectiveValues(schemas[0], schemas[1])) {
    shown += name + "\1" + name + "\2" + text + "\3";
    using httplib::detail::encode_query_param;  // a browser leaves out a field without a name
    if (!name.empty()) form += encode_query_param(name) + "=" + encode_query_param(text) + "&";
  }
  // The markup is replaced first: a reserved character that is then left was not escaped.
  const std::string page = service.RenderPage();
  std::string fields = page.substr(37, page.find("<input type=\"submit\"") - 37);
  for (const auto& [from, to] : std::initializer_list<std::pair<const char*, const char*>>{
           {": <input type=\"text\" name=\"", "\1"},
           {"\" value=\"", "\2"},
           {"\"><br>", "\3"},
           {"[\"<>]|&(?!(quot|lt|gt|amp);)", "a fault"},
           {"&quot;", "\""},
           {"&lt;", "<"},
           {"&gt;", ">"},
           {"&amp;", "&"}}) {
    fields = std::regex_replace(fields, std::regex(from), to);
  }
  const auto answer = browser.Post("/update", form, "application/x-www-form-urlencoded");
  if (fields != shown || !answer || (answer->status != 413 && answer->body != page)) abort();
  return 0;
}

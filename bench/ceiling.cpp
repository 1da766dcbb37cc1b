// The ceiling: the daemon's HTTP library with the daemon's settings, answering every page with the
// ready-made one on standard input. Usage: ceiling PORT <PAGE
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>

#include "http_service/feature_toggle_http_impl.h"

int main(int argc, char** argv) {
  if (argc != 2) return 1;
  const std::string page{std::istreambuf_iterator<char>(std::cin), {}};
  httplib::Server server;
  feature_toggle::ConfigureServer(server);
  server.Get("/", [&page](const httplib::Request&, httplib::Response& response) {
    response.set_content(page, "text/html");
  });
  return server.listen("127.0.0.1", std::atoi(argv[1])) ? 0 : 1;
}

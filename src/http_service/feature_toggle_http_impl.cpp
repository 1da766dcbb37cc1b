#include "http_service/feature_toggle_http_impl.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "file_access/directory_lock.h"
#include "file_access/file_saver.h"
#include "http_service/configuration_page.h"
#include "toggle_schema/schema_json.h"

#ifdef __GLIBC__
#include <nss.h>
#include <sys/auxv.h>
#endif

namespace feature_toggle {
namespace {

constexpr char kHtml[] = "text/html";

// Sets every option explicitly: defaults differ between cpp-httplib releases. The listening backlog
// (5) and the longest form (8192 bytes) are compile-time options, set in CMakeLists.txt.
void ConfigureServer(httplib::Server& server) {
  const int hardware_threads = static_cast<int>(std::thread::hardware_concurrency());  // 0: unknown
  const auto workers = static_cast<size_t>(std::max(2, hardware_threads - 1));
  server.new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
  server.set_keep_alive_max_count(5);
  server.set_keep_alive_timeout(5);
  server.set_read_timeout(5, 0);
  server.set_write_timeout(5, 0);
  server.set_idle_interval(0, 0);
  server.set_payload_max_length(std::numeric_limits<size_t>::max());
  server.set_address_family(AF_UNSPEC);
  server.set_tcp_nodelay(false);
  server.set_socket_options([](int socket) {
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEPORT, &on, sizeof on);
  });
}

}  // namespace

FeatureToggleHTTPImpl::FeatureToggleHTTPImpl(const std::string& secondary_schema_path)
    : secondary_schema_path_(secondary_schema_path) {
  using httplib::Request;
  using httplib::Response;
  ConfigureServer(server_);
  server_.Get("/", [this](const Request&, Response& response) { ShowPage(response); });
  server_.Post("/update",
               [this](const Request& request, Response& response) { Update(request, response); });
  server_.Post("/reboot", [](const Request&, Response& response) { Reboot(response); });
}

FeatureToggleHTTPImpl::~FeatureToggleHTTPImpl() { server_.stop(); }

void FeatureToggleHTTPImpl::SetPrimarySchema(const ToggleSchema& schema) { primary_ = schema; }

void FeatureToggleHTTPImpl::SetSecondarySchema(const ToggleSchema& schema) { secondary_ = schema; }

void FeatureToggleHTTPImpl::Listen(const std::string& host, int port) {
#ifdef __GLIBC__
  // A static executable has no ELF interpreter (AT_BASE is 0). Loading the NSS modules of the
  // device into it crashes, so it uses only the modules that are linked in.
  if (getauxval(AT_BASE) == 0) __nss_configure_lookup("hosts", "files dns");
#endif
  server_.listen(host, port);
}

std::string FeatureToggleHTTPImpl::RenderPage() const {
  return RenderConfigurationPage(EffectiveValues(primary_, secondary_));
}

void FeatureToggleHTTPImpl::ShowPage(httplib::Response& response) const {
  const std::shared_lock lock(mutex_);
  response.set_content(RenderPage(), kHtml);
}

void FeatureToggleHTTPImpl::Update(const httplib::Request& request, httplib::Response& response) {
  // Waits for a run that has read the file and is about to save it. Taken before the mutex, so that
  // other threads can serve pages in the meantime.
  const file_utils::DirectoryLock directory_lock(secondary_schema_path_);
  const std::unique_lock lock(mutex_);
  // Each field is compared with its value before the request. If a field is posted twice, the last
  // value that differs is kept.
  const auto values = EffectiveValues(primary_, secondary_);
  std::optional<ToggleSchema> changed;
  for (const auto& [key, value] : request.params) {
    const auto current = values.find(key);
    if (current == values.end() || current->second == value) continue;
    if (!changed) changed = secondary_;
    SetToggle(*changed, key, value);
  }
  if (changed) {
    // If memory runs out while the text is made, neither the document nor the file changes. If the
    // save fails, only the document changes, and the next change saves it too.
    file_utils::FileSaver().Save(secondary_schema_path_, SerializeToggleSchema(*changed), nullptr);
    secondary_ = *std::move(changed);
  }
  response.set_content(RenderPage(), kHtml);
}

void FeatureToggleHTTPImpl::Reboot(httplib::Response& response) {
  response.set_content(
      "<h3>Rebooting the core to take effect...please wait for refresh after 30 seconds.</h3>",
      kHtml);
  [[maybe_unused]] const int status = std::system("reboot");
}

}  // namespace feature_toggle

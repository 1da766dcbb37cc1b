// No bytes crash the parser, and a schema reads back as it was written.
#include <cstdlib>

#include "toggle_schema/schema_json.h"

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
  using namespace feature_toggle;
  const std::string text(data, size);
  const ToggleSchema read = ParseToggleSchema(text + ReadGitRevision(text));
  const std::string written = SerializeToggleSchema(read);
  ToggleSchema again = ParseToggleSchema(written);
  if (SerializeToggleSchema(again) != written || again.git_revision != read.git_revision) abort();
  for (const auto& [key, a] : read.variables) {
    const ToggleVariable b = again.variables[key];
    if (b.value != a.value || b.options != a.options || b.description != a.description) abort();
  }
  return 0;
}

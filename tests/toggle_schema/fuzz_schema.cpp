// Any bytes: no crash, and what is written reads back equal and is written the same again.
#include <cstdlib>
#include <tuple>

#include "toggle_schema/schema_json.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
  using namespace feature_toggle;
  const std::string text(data, data + size);
  const ToggleSchema read = ParseToggleSchema(text);
  const std::string written = SerializeToggleSchema(read);
  const ToggleSchema again = ParseToggleSchema(written);
  const auto fields = [](const auto& entry) {
    const ToggleVariable& variable = entry.second;
    return std::tie(entry.first, variable.key, variable.value, variable.options,
                    variable.description);
  };
  const bool equal = std::equal(
      read.variables.begin(), read.variables.end(), again.variables.begin(), again.variables.end(),
      [&](const auto& a, const auto& b) { return fields(a) == fields(b); });
  if (!equal || read.git_revision != again.git_revision) std::abort();
  if (SerializeToggleSchema(again) != written || ReadGitRevision(written) != read.git_revision) {
    std::abort();
  }
  ReadGitRevision(text);
  return 0;
}

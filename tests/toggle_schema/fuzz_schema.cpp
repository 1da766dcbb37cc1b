// Any bytes: no crash, and what is written reads back equal.
#include <cstdlib>

#include "toggle_schema/schema_json.h"

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
  using namespace feature_toggle;
  const std::string text(data, size);
  const ToggleSchema read = ParseToggleSchema(text + ReadGitRevision(text));
  const std::string written = SerializeToggleSchema(read);
  const ToggleSchema again = ParseToggleSchema(written);
  bool equal = ReadGitRevision(written) == read.git_revision &&
               again.variables.size() == read.variables.size();
  for (const auto& [key, a] : read.variables) {
    const ToggleVariable b = equal ? again.variables.at(key) : ToggleVariable();
    equal = equal && b.key == key && b.value == a.value && b.options == a.options &&
            b.description == a.description;
  }
  if (!equal || SerializeToggleSchema(again) != written) std::abort();
  return 0;
}

// What each piece of the daemon costs on its own, by number of toggles, and how it grows.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <utility>

#include "app/export_script.h"
#include "http_service/configuration_page.h"
#include "toggle_schema/schema_json.h"

namespace feature_toggle {
namespace {

// Every `step`th of `count` toggles, as bench/compare.py writes them.
ToggleSchema MakeSchema(int64_t count, int64_t step, const char* value) {
  ToggleSchema schema;
  for (int64_t i = 0; i < count; i += step) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%07d", static_cast<int>(i));
    const std::string key = std::string("DEMO_FEATURE_") + digits;
    schema.variables[key] = {key, value, {"off", "on"}, "Switches part " + std::to_string(i)};
  }
  return schema;
}

// Runs `piece` on what `prepare` makes of a primary schema and a secondary one with a tenth of it.
// It moves them: the records of a copied map do not lie in order.
template <typename Prepare, typename Piece>
void Measure(benchmark::State& state, const Prepare& prepare, const Piece& piece) {
  const auto input =
      prepare(MakeSchema(state.range(0), 1, "off"), MakeSchema(state.range(0), 10, "on"));
  for ([[maybe_unused]] const auto iteration : state) benchmark::DoNotOptimize(piece(input));
  state.SetComplexityN(state.range(0));
}

void Reader(benchmark::State& state) {
  Measure(
      state, [](const auto& primary, const auto&) { return SerializeToggleSchema(primary); },
      ParseToggleSchema);
}

void Writer(benchmark::State& state) {
  Measure(
      state, [](ToggleSchema primary, const auto&) { return primary; }, SerializeToggleSchema);
}

void Values(benchmark::State& state) {
  Measure(
      state,
      [](ToggleSchema primary, ToggleSchema secondary) {
        return std::pair(std::move(primary), std::move(secondary));
      },
      [](const auto& schemas) { return EffectiveValues(schemas.first, schemas.second); });
}

void Export(benchmark::State& state) { Measure(state, EffectiveValues, RenderExportScript); }

void Page(benchmark::State& state) { Measure(state, EffectiveValues, RenderConfigurationPage); }

void Sizes(benchmark::internal::Benchmark* benchmark) {
  // The last is for the fit: up to it, what grows is also how much misses the caches.
  for (const int64_t count : {10, 1000, 100000, 1000000}) benchmark->Arg(count);
  benchmark->Unit(benchmark::kMicrosecond)->Complexity();
}

BENCHMARK(Reader)->Apply(Sizes);
BENCHMARK(Writer)->Apply(Sizes);
BENCHMARK(Values)->Apply(Sizes);
BENCHMARK(Export)->Apply(Sizes);
BENCHMARK(Page)->Apply(Sizes);

}  // namespace
}  // namespace feature_toggle

int main(int argc, char** argv) {
  // All memory is kept, so that the work is measured and not the mapping of what was just returned.
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}

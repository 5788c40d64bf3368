#include <benchmark/benchmark.h>
#include <cJSON.h>

#include <cmath>
#include <cstdlib>

#include "bench/images.h"
#include "planex/api/planex.h"
#include "planex/infra/base64.h"
#include "planex/infra/json_deserializer.h"
#include "planex/infra/json_serializer.h"
#include "planex/infra/out_stream.h"
#include "planex/model/calibration_model.h"

namespace {

using datafusion::planex::CalibrationModel;

/// A model whose calibrated region has cells x cells cells; with 200 its document is 1 MB long.
CalibrationModel regionModel(int cells) {
  std::mt19937 random(5);
  const auto draw = [&random] { return static_cast<double>(random() % 100000) * 1e-3; };
  etl::Vector<cmnalg::Vec<2, double>> points(10000);
  for (auto& point : points) point = {draw(), draw()};
  const etl::Vector<cmnalg::Vec<2, double>> residuals(points.rbegin(), points.rend());
  CalibrationModel model;
  model.CurrentState = datafusion::planex::ModelState::CALIBRATED;
  model.CalibrationError = model.CalibrationErrorMax = 0.01;
  model.AlignmentError = model.AlignmentErrorMax = 0;
  if (cells > 0 && !(model.CalibratedRegion.Resize(cells, cells) &&
                     model.CalibratedRegion.Update(points, residuals))) {
    std::abort();
  }
  return model;
}

std::string documentOf(CalibrationModel& model) {
  etl::MemoryOutStream stream;
  base::JsonVisitingSerializer serializer(stream, false);
  if (!serializer.Serialize(model)) std::abort();
  return std::string(stream.GetText());
}

std::string document(int cells) {
  CalibrationModel model = regionModel(cells);
  return documentOf(model);
}

void parseOnly(benchmark::State& state, int cells) {
  const std::string text = document(cells);
  while (state.KeepRunning()) {
    cJSON* root = cJSON_Parse(text.c_str());
    benchmark::DoNotOptimize(root);
    cJSON_Delete(root);
  }
}

void readModel(benchmark::State& state, int cells) {
  const std::string text = document(cells);
  while (state.KeepRunning()) {
    CalibrationModel model;
    base::JsonVisitingDeSerializer reader(text.c_str(), false);
    if (!reader.DeserializeIntoExistingObject(model)) state.SkipWithError("unreadable");
    benchmark::DoNotOptimize(model);
  }
}

/// Through the C interface, with the model's destruction.
void createModel(benchmark::State& state, int cells) {
  const std::string text = document(cells);
  std::uint32_t handle = 0;
  while (state.KeepRunning()) {
    if (!createModelFromJson(text.c_str(), &handle)) state.SkipWithError("refused");
    destroyModel(&handle);
  }
}

void writeModel(benchmark::State& state, int cells) {
  CalibrationModel model = regionModel(cells);
  while (state.KeepRunning()) {
    std::string text = documentOf(model);
    benchmark::DoNotOptimize(text);
  }
}

/// Through the C interface, into the caller's buffer.
void exportModel(benchmark::State& state, int cells) {
  const std::string text = document(cells);
  std::string out(2 * text.size() + 4096, '\0');
  std::uint32_t handle = 0;
  if (!createModelFromJson(text.c_str(), &handle)) state.SkipWithError("refused");
  while (state.KeepRunning()) {
    if (!createJsonFromModel(handle, out.data(), out.size())) state.SkipWithError("refused");
    benchmark::ClobberMemory();
  }
  destroyModel(&handle);
}

void copyModel(benchmark::State& state, int cells) {
  const CalibrationModel model = regionModel(cells);
  while (state.KeepRunning()) {
    CalibrationModel copy(model);
    benchmark::DoNotOptimize(copy);
  }
}

constexpr std::size_t kBytes = 800000;  ///< the five images of a region of 200 x 200 cells

std::vector<unsigned char> randomBytes() {
  std::mt19937 random(6);
  std::vector<unsigned char> bytes(kBytes);
  for (auto& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

std::string encoded(const std::vector<unsigned char>& bytes) {
  std::string text;
  etl::base64::Encoder encoder(text);
  encoder.Append(bytes.data(), bytes.size());
  encoder.Finish();
  return text;
}

void base64Encode(benchmark::State& state) {
  const std::vector<unsigned char> bytes = randomBytes();
  while (state.KeepRunning()) {
    std::string text = encoded(bytes);
    benchmark::DoNotOptimize(text);
  }
}

void base64Decode(benchmark::State& state) {
  std::vector<unsigned char> bytes = randomBytes();
  const std::string text = encoded(bytes);
  while (state.KeepRunning()) {
    if (!etl::base64::decode(text, bytes.data())) state.SkipWithError("no base64");
    benchmark::ClobberMemory();
  }
}

BENCHMARK_CAPTURE(parseOnly, region_200, 200);
BENCHMARK_CAPTURE(readModel, region_200, 200);
BENCHMARK_CAPTURE(createModel, region_200, 200);
BENCHMARK_CAPTURE(writeModel, region_200, 200);
BENCHMARK_CAPTURE(exportModel, region_200, 200);
BENCHMARK_CAPTURE(copyModel, region_200, 200);
BENCHMARK_CAPTURE(parseOnly, no_region, 0);
BENCHMARK_CAPTURE(readModel, no_region, 0);
BENCHMARK(base64Encode);
BENCHMARK(base64Decode);

}  // namespace

// The command beside a plain loop over the same rows: read, calibrate, rectify, write the bytes.
//
//     command_bench PLANEX MODEL RANGE.pgm FOLDER [ROUNDS [OPTION...]]
//
// RANGE.pgm has 16 bits; OPTIONs go to the command. In each round both run after each other, for
// `rectify` into a TIFF and for `calibrate` into an array. Printed are medians: processor time,
// elapsed time, their ratios, and what the stages of the loop take.
#include <omp.h>
#include <planex/io/model_file.h>
#include <planex/processing/image_calibration.h>
#include <planex/processing/rectification.h>
#include <planex/scan/sensor.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

using cmnalg::Image;
using namespace datafusion::planex;

constexpr int kBlock = 64;  // rows at a time
constexpr int kLevels = 65536;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

struct Times {
  double own = 0, elapsed = 0;
};

/// Runs it in a process of its own.
Times timed(const std::function<void()>& body) {
  const double begin = now();
  const pid_t child = fork();
  if (child == 0) {
    body();
    std::_Exit(0);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  if (status != 0) std::exit(1);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
  };
  return {seconds(usage.ru_utime) + seconds(usage.ru_stime), now() - begin};
}

struct Job {
  std::string planex, model, range, folder;
  std::vector<std::string> options;
};

void runCommand(const Job& job, const std::string& command, const std::string& output) {
  std::vector<std::string> words{job.planex, command, job.model, job.range,
                                 "-o",       output,  "-q",      "--force"};
  words.insert(words.end(), job.options.begin(), job.options.end());
  std::vector<char*> arguments(words.size() + 1);  // a null behind the last
  std::transform(words.begin(), words.end(), arguments.begin(),
                 [](std::string& word) { return word.data(); });
  execv(job.planex.c_str(), arguments.data());
  std::_Exit(1);
}

/// @param told whether the stages are printed
void runLoop(const Job& job, bool rectify, const std::string& output, bool told) {
  omp_set_num_threads(1);
  const CalibrationModel model = planex::io::loadModel(job.model);
  std::FILE* in = std::fopen(job.range.c_str(), "rb");
  std::FILE* out = std::fopen(output.c_str(), "wb");
  int width = 0, height = 0;
  if (in == nullptr || out == nullptr ||
      std::fscanf(in, "P5 %d %d 65535%*c", &width, &height) != 2) {
    std::_Exit(1);
  }
  const SensorRegion region = planex::scan::resolveSensor({}, job.range, model, job.model);
  const WorldBounds bounds = planex::scan::worldBounds(model, region, width, job.model);
  const GridAxis columns = sampleAxis(bounds.x.min, bounds.x.max, width);
  const GridAxis levels = levelAxis(bounds.z.min, bounds.z.max, kLevels);
  cmnalg::ImageOf<float> x, z;
  cmnalg::ImageOf<std::uint16_t> map;
  std::vector<std::uint16_t> samples;
  std::vector<float> points;
  double reading = 0, computing = 0, writing = 0;
  for (int row = 0; row < height; row += kBlock) {
    const int rows = std::min(kBlock, height - row);
    const auto count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(width);
    double start = now();
    samples.resize(count);
    if (std::fread(samples.data(), 2, count, in) != count) std::_Exit(1);
    for (std::uint16_t& s : samples) s = static_cast<std::uint16_t>(s >> 8 | s << 8);
    double end = now();
    reading += end - start;
    start = end;
    Image range;
    range.Create(samples.data(), cmnalg::IMAGE_TYPE_UINT16, width, rows, 0, false,
                 Image::s_defaultImageAllocator, false);
    range.PixelSize = {region.scaleX, 1, region.scaleZ};
    range.Origin = {region.originX, 0, region.originZ};
    bool good = applyCalibration(model, false, range, x, z, RunMode::Default);
    if (rectify) {
      map.Create(width, rows, Image::s_defaultImageAllocator);
      map.PixelSize = {columns.scale, 1, levels.scale};
      map.Origin = {columns.origin, 0, levels.origin};
      map.HandleZeroPixels = cmnalg::ZeroPixels::MissingData;
      good =
          good && toRectified(x, z, bounds.lateralSpacing, 1, RectificationMode::MEAN, map, true);
    } else {
      points.resize(2 * count);
      for (std::size_t i = 0; i < count; ++i) {
        points[2 * i] = x.GetRowPtr(0)[i];
        points[2 * i + 1] = z.GetRowPtr(0)[i];
      }
    }
    end = now();
    computing += end - start;
    start = end;
    const void* bytes = rectify ? static_cast<const void*>(map.GetRowPtr(0)) : points.data();
    if (!good || std::fwrite(bytes, rectify ? 2 : 8, count, out) != count) std::_Exit(1);
    writing += now() - start;
  }
  if (std::fclose(out) != 0) std::_Exit(1);
  if (told) {
    std::printf("  stages: reading %.2f s, computing %.2f s, writing %.2f s\n", reading, computing,
                writing);
    std::fflush(stdout);
  }
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void contest(const Job& job, const char* command, const char* ending, int rounds) {
  const std::string output = job.folder + "/command_bench" + ending;
  const bool rectify = std::string(command) == "rectify";
  std::vector<double> own[2], elapsed[2], ratio;
  std::printf("%s into %s\n", command, ending);
  std::fflush(stdout);
  const auto remove = [&] {
    std::remove(output.c_str());
    std::remove((output + ".json").c_str());
  };
  for (int round = 0; round < rounds; ++round) {
    remove();  // a file that is replaced costs as much as one that is written
    const Times loop = timed([&] { runLoop(job, rectify, output, round == 0); });
    remove();
    const Times tool = timed([&] { runCommand(job, command, output); });
    for (const auto& [i, times] : {std::pair{0, loop}, {1, tool}}) {
      own[i].push_back(times.own);
      elapsed[i].push_back(times.elapsed);
    }
    ratio.push_back(tool.own / loop.own);
  }
  remove();
  std::printf("  processor: loop %.2f s, command %.2f s, ratio %.2f\n", median(own[0]),
              median(own[1]), median(ratio));
  std::printf("  elapsed:   loop %.2f s, command %.2f s, ratio %.2f\n", median(elapsed[0]),
              median(elapsed[1]), median(elapsed[1]) / median(elapsed[0]));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fputs("usage: command_bench PLANEX MODEL RANGE.pgm FOLDER [ROUNDS [OPTION...]]\n", stderr);
    return 2;
  }
  const Job job{argv[1], argv[2], argv[3], argv[4],
                std::vector<std::string>(argv + std::min(argc, 6), argv + argc)};
  const int rounds = argc > 5 ? std::atoi(argv[5]) : 5;
  contest(job, "rectify", ".tif", rounds);
  contest(job, "calibrate", ".npy", rounds);
  return 0;
}

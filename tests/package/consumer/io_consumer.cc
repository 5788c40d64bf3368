// Uses the library of files and scans as a program outside it: reads a model, refuses what is no
// image, and catches the refusal by its type across the boundary.
#include <planex/io/failure.h>
#include <planex/io/image_reader.h>
#include <planex/io/json.h>
#include <planex/io/model_file.h>
#include <planex/scan/sensor.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : "";
  const auto model = planex::io::loadModel(path);
  planex::io::JsonText json;
  json.add("width", planex::scan::resolveSensor({}, "", model, path).width);
  try {
    planex::io::ImageReader::open(path);
  } catch (const planex::io::Failure& failure) {
    std::printf("%s%s\n", json.print().c_str(), failure.what());
    return model.SensorSize.x > 0 ? 0 : 1;
  }
  return 1;
}

#include <fmt/format.h>
#include <planex/io/failure.h>
#include <planex/io/json.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tools/cli/open_camera.h"
#include "tools/commands/commands.h"

namespace planex::tools {
namespace {

using acquisition::CameraIdentity;

std::string jsonText(const std::vector<CameraIdentity>& cameras) {
  const io::JsonText root;
  root.addList("cameras", nullptr, 0);
  for (const CameraIdentity& camera : cameras) {
    const io::JsonObject object = root.appendTo("cameras");
    object.add("id", camera.id);
    object.add("maker", camera.maker);
    object.add("model", camera.model);
    object.add("serial", camera.serial);
    object.add("address", camera.address);
    object.add("protocol", camera.protocol);
  }
  return root.print();
}

std::string plainText(const std::vector<CameraIdentity>& cameras) {
  std::string text;
  for (const CameraIdentity& camera : cameras) {
    text += io::inOneLine(fmt::format("camera:{}  {} {}, serial number {}, {} at {}", camera.id,
                                      camera.maker, camera.model, camera.serial, camera.protocol,
                                      camera.address)) +
            "\n";
  }
  return cameras.empty() ? "no camera answers\n" : text;
}

}  // namespace

void addCamerasCommand(CLI::App& app, Context& /*context*/) {
  const auto json = std::make_shared<bool>(false);
  CLI::App* command = app.add_subcommand("cameras", "List the cameras that answer");
  command->add_flag("--json", *json, "Print JSON");
  command->footer(
      "Examples:\n"
      "  planex cameras\n"
      "  planex cameras --json");
  command->callback([json] {
    const std::vector<CameraIdentity> cameras = findCameras();
    std::fputs((*json ? jsonText(cameras) : plainText(cameras)).c_str(), stdout);
  });
}

}  // namespace planex::tools

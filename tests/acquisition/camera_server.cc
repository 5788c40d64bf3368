// Usage: camera_server GENICAM.xml LOST_RATIO. A GigE Vision camera on 127.0.0.1 that loses so many
// of its packets. It says "ready" and ends with its standard input. Bytes 0 and 1 of frame k are k;
// the others show a line across 8 to 24 rows, over a ground of 16 levels.
#include <arv.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

ArvFakeCamera* fake = nullptr;

void fill(ArvBuffer* buffer, void* counter, guint32 /*exposure*/, guint32 /*gain*/,
          ArvPixelFormat /*format*/) {
  auto* bytes = static_cast<std::uint8_t*>(const_cast<void*>(arv_buffer_get_data(buffer, nullptr)));
  const std::size_t size = arv_fake_camera_get_payload(fake);  // the buffer does not tell it yet
  const std::uint32_t frame = (*static_cast<std::uint32_t*>(counter))++;
  guint32 width = 1;
  arv_fake_camera_read_register(fake, ARV_FAKE_CAMERA_REGISTER_WIDTH, &width);
  for (std::uint32_t i = 0; i < size; ++i) {
    const auto place = static_cast<int>(64 + (2 * (i % width) + 3 * frame) % 128);  // 1/8 rows
    const int line = 200 - 5 * std::abs(8 * static_cast<int>(i / width) - place);
    bytes[i] =
        static_cast<std::uint8_t>(std::max(line, 0) + static_cast<int>((13 * i + 7 * frame) % 16));
  }
  bytes[0] = static_cast<std::uint8_t>(frame);
  bytes[1] = static_cast<std::uint8_t>(frame >> 8);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  std::uint32_t counter = 0;
  ArvGvFakeCamera* camera = arv_gv_fake_camera_new_full("127.0.0.1", "Test1", argv[1]);
  g_object_set(camera, "gvsp-lost-ratio", std::atof(argv[2]), nullptr);
  fake = arv_gv_fake_camera_get_fake_camera(camera);
  arv_fake_camera_set_fill_pattern(fake, fill, &counter);
  if (arv_gv_fake_camera_is_running(camera) == 0) return 1;
  std::puts("ready");
  std::fflush(stdout);
  while (std::getchar() != EOF) {
  }
  g_object_unref(camera);
  return 0;
}

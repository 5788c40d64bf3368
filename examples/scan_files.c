#include "scan_files.h"

#include <stdlib.h>

FILE* openIn(const char* folder, const char* name, const char* mode) {
  char path[4096];
  FILE* file = NULL;
  if (snprintf(path, sizeof path, "%s/%s", folder, name) < (int)sizeof path) {
    file = fopen(path, mode);
  }
  if (file == NULL) fprintf(stderr, "cannot open %s/%s\n", folder, name);
  return file;
}

/* The pixels of a binary greymap of one or two bytes per pixel; NULL when it is something else. */
static uint8_t* readPgm(const char* folder, const char* name, int maximum, ImageSize* size) {
  const size_t bytesPerPixel = maximum > 255 ? 2 : 1;
  uint8_t* pixels = NULL;
  int width = 0, height = 0, found = 0;
  FILE* file = openIn(folder, name, "rb");
  if (file == NULL) return NULL;
  if (fscanf(file, "P5 %d %d %d", &width, &height, &found) == 3 && fgetc(file) != EOF &&
      found == maximum && width > 0 && width <= UINT16_MAX && height > 0 && height <= UINT16_MAX) {
    const size_t count = (size_t)width * (size_t)height;
    pixels = malloc(count * bytesPerPixel);
    if (pixels != NULL && fread(pixels, bytesPerPixel, count, file) != count) {
      free(pixels);
      pixels = NULL;
    }
  }
  fclose(file);
  if (pixels == NULL) fprintf(stderr, "%s/%s is not the greymap expected\n", folder, name);
  size->width = (uint16_t)width;
  size->height = (uint16_t)height;
  return pixels;
}

/* The file has the high byte first; the library takes the byte order of the machine. */
static uint16_t* toHostOrder(uint8_t* bytes, size_t count) {
  uint16_t* values = (uint16_t*)(void*)bytes;
  size_t i;
  for (i = 0; i < count; ++i) values[i] = (uint16_t)(bytes[2 * i] << 8 | bytes[2 * i + 1]);
  return values;
}

static bool readDescription(const char* folder, Scan* scan) {
  SensorTraits* t = &scan->traits;
  int found = 0;
  FILE* file = openIn(folder, "scan.txt", "r");
  if (file == NULL) return false;
  found = fscanf(file,
                 "column_step %lf column_origin %lf row_step %lf row_origin %lf "
                 "region_width %hu region_height %hu profile_spacing_mm %lf row_noise %lf",
                 &t->scaleX, &t->originX, &t->scaleZ, &t->originZ, &t->width, &t->height,
                 &scan->profileSpacing, &scan->rowNoise);
  fclose(file);
  if (found != 8) fprintf(stderr, "%s/scan.txt is not the description expected\n", folder);
  return found == 8;
}

bool readScan(const char* folder, Scan* scan) {
  ImageSize intensitySize = {0, 0};
  uint8_t* bytes = NULL;
  scan->range = NULL;
  scan->intensity = NULL;
  if (!readDescription(folder, scan)) return false;
  bytes = readPgm(folder, "range.pgm", 65535, &scan->size);
  if (bytes == NULL) return false;
  scan->range = toHostOrder(bytes, (size_t)scan->size.width * scan->size.height);
  scan->intensity = readPgm(folder, "intensity.pgm", 255, &intensitySize);
  if (scan->intensity == NULL) return false;
  if (intensitySize.width == scan->size.width && intensitySize.height == scan->size.height) {
    return true;
  }
  fprintf(stderr, "range.pgm and intensity.pgm differ in size\n");
  return false;
}

void freeScan(Scan* scan) {
  free(scan->range);
  free(scan->intensity);
}

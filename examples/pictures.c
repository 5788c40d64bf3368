#include "pictures.h"

#include <math.h>
#include <png.h>
#include <stdlib.h>
#include <string.h>

typedef struct Color {
  uint8_t r, g, b;
} Color;

typedef struct Canvas {
  Color* pixels;
  int width, height;
} Canvas;

enum { kPanel = 150, kFontScale = 3, kGlyphWidth = 5, kGlyphHeight = 7 };

static const Color kInk = {235, 235, 235};
static const Color kPaper = {24, 26, 30};

static bool writePng(FILE* file, const uint8_t* pixels, size_t rowBytes, int bits, int colorType,
                     int width, int height) {
  int row;
  png_infop info = NULL;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, NULL, NULL, NULL);
  if (png != NULL) info = png_create_info_struct(png);
  if (info == NULL || setjmp(png_jmpbuf(png))) { /* libpng jumps back here when writing fails */
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_init_io(png, file);
  png_set_IHDR(png, info, (png_uint_32)width, (png_uint_32)height, bits, colorType,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  if (bits == 16) png_set_swap(png); /* PNG has the high byte first */
#endif
  for (row = 0; row < height; ++row) png_write_row(png, pixels + (size_t)row * rowBytes);
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return true;
}

bool writeGreyPng(FILE* file, const void* pixels, int bits, int width, int height) {
  return writePng(file, pixels, (size_t)width * (size_t)(bits / 8), bits, PNG_COLOR_TYPE_GRAY,
                  width, height);
}

/* Blue, cyan, green, yellow, red, over t = 0 ... 1. */
static Color falseColor(double t) {
  static const double stops[][3] = {{48, 34, 110},  {38, 110, 200}, {40, 180, 190}, {90, 200, 100},
                                    {230, 210, 70}, {240, 130, 45}, {190, 35, 35}};
  const int last = (int)(sizeof stops / sizeof stops[0]) - 1;
  const double position = fmin(fmax(t, 0), 1) * last;
  const int i = position < last ? (int)position : last - 1;
  const double f = position - i;
  Color color;
  color.r = (uint8_t)(stops[i][0] + f * (stops[i + 1][0] - stops[i][0]));
  color.g = (uint8_t)(stops[i][1] + f * (stops[i + 1][1] - stops[i][1]));
  color.b = (uint8_t)(stops[i][2] + f * (stops[i + 1][2] - stops[i][2]));
  return color;
}

static Color dimmed(Color color, double light) {
  color.r = (uint8_t)(color.r * light);
  color.g = (uint8_t)(color.g * light);
  color.b = (uint8_t)(color.b * light);
  return color;
}

static void fill(Canvas* canvas, int x, int y, int width, int height, Color color) {
  int i, k;
  for (k = y; k < y + height; ++k) {
    for (i = x; i < x + width; ++i) {
      if (i >= 0 && i < canvas->width && k >= 0 && k < canvas->height) {
        canvas->pixels[(size_t)k * (size_t)canvas->width + (size_t)i] = color;
      }
    }
  }
}

/* Writes a text of digits, '-', '.', 'm' and spaces with its upper left corner at (x, y). */
static void write(Canvas* canvas, int x, int y, const char* text) {
  /* One byte per row, the highest of five bits on the left. */
  static const char letters[] = "0123456789-.m";
  static const uint8_t glyphs[][kGlyphHeight] = {
      {14, 17, 19, 21, 25, 17, 14}, {4, 12, 4, 4, 4, 4, 14},  {14, 17, 1, 2, 4, 8, 31},
      {31, 2, 4, 2, 1, 17, 14},     {2, 6, 10, 18, 31, 2, 2}, {31, 16, 30, 1, 1, 17, 14},
      {6, 8, 16, 30, 17, 17, 14},   {31, 1, 2, 4, 8, 8, 8},   {14, 17, 17, 14, 17, 17, 14},
      {14, 17, 17, 15, 1, 2, 12},   {0, 0, 0, 31, 0, 0, 0},   {0, 0, 0, 0, 0, 12, 12},
      {0, 0, 26, 21, 21, 21, 21}};
  int row, bit;
  for (; *text != '\0'; ++text, x += (kGlyphWidth + 1) * kFontScale) {
    const char* letter = strchr(letters, *text);
    if (letter == NULL) continue;
    for (row = 0; row < kGlyphHeight; ++row) {
      for (bit = 0; bit < kGlyphWidth; ++bit) {
        if (glyphs[letter - letters][row] >> (kGlyphWidth - 1 - bit) & 1) {
          fill(canvas, x + bit * kFontScale, y + row * kFontScale, kFontScale, kFontScale, kInk);
        }
      }
    }
  }
}

/* The largest of 1, 2, 5, 10, ... that fits `length` at least `count` times. */
static double roundStep(double length, int count) {
  const double decade = pow(10, floor(log10(length / count)));
  const double step = length / count / decade;
  return decade * (step >= 5 ? 5 : step >= 2 ? 2 : 1);
}

static double heightOr(const float* heights, int width, int height, int x, int y, double other) {
  const bool inside = x >= 0 && x < width && y >= 0 && y < height;
  const double z = inside ? heights[(size_t)y * (size_t)width + (size_t)x] : NAN;
  return isnan(z) ? other : z;
}

/* Light from the upper left: level ground keeps its color, slopes that face away get darker. */
static double reliefLight(const float* heights, int width, int height, int x, int y,
                          double spacing) {
  const int reach = 3; /* so far that noise does not show */
  const double z = heights[(size_t)y * (size_t)width + (size_t)x];
  const double left = heightOr(heights, width, height, x - reach, y, z);
  const double right = heightOr(heights, width, height, x + reach, y, z);
  const double up = heightOr(heights, width, height, x, y - reach, z);
  const double down = heightOr(heights, width, height, x, y + reach, z);
  const double rise = (right - left + down - up) / (2 * reach * spacing);
  const double light = fmin(fmax(1 + 0.3 * rise, 0.5), 1);
  return floor(light * 32 + 0.5) / 32; /* level ground stays free of noise */
}

static void drawMap(Canvas* canvas, const float* heights, int width, double zMin, double zMax,
                    double spacing) {
  const Color missing = {0, 0, 0};
  int x, y;
  for (y = 0; y < canvas->height; ++y) {
    for (x = 0; x < width; ++x) {
      const float z = heights[(size_t)y * (size_t)width + (size_t)x];
      const double light =
          isnan(z) ? 0 : reliefLight(heights, width, canvas->height, x, y, spacing);
      const Color color =
          isnan(z) ? missing : dimmed(falseColor((z - zMin) / (zMax - zMin)), light);
      fill(canvas, x, y, 1, 1, color);
    }
  }
}

static void drawColorBar(Canvas* canvas, int x, double zMin, double zMax) {
  const int top = 70, bottom = canvas->height - 40, barWidth = 36;
  const double step = roundStep(zMax - zMin, 5);
  const int first = (int)ceil(zMin / step), last = (int)floor(zMax / step + 1e-9);
  char text[32];
  int y, i;
  for (y = top; y < bottom; ++y) {
    fill(canvas, x, y, barWidth, 1, falseColor((double)(bottom - y) / (bottom - top)));
  }
  write(canvas, x, 24, "mm");
  for (i = first; i <= last; ++i) {
    y = bottom - (int)((i * step - zMin) / (zMax - zMin) * (bottom - top));
    fill(canvas, x + barWidth, y - 1, 8, 2, kInk);
    snprintf(text, sizeof text, "%g", i * step);
    write(canvas, x + barWidth + 14, y - kGlyphHeight * kFontScale / 2, text);
  }
}

static void drawLengthBar(Canvas* canvas, int width, double spacing) {
  const double length = roundStep(width * spacing, 5);
  const int pixels = (int)(length / spacing);
  const int x = 20, y = canvas->height - 24;
  char text[32];
  fill(canvas, x, y, pixels, 4, kInk);
  fill(canvas, x, y - 6, 3, 16, kInk);
  fill(canvas, x + pixels - 3, y - 6, 3, 16, kInk);
  snprintf(text, sizeof text, "%g mm", length);
  write(canvas, x + 12, y - 32, text);
}

bool writeColorPng(FILE* file, const float* heights, int width, int height, double zMin,
                   double zMax, double spacing) {
  bool written = false;
  Canvas canvas = {NULL, width + kPanel, height};
  canvas.pixels = malloc((size_t)canvas.width * (size_t)height * sizeof(Color));
  if (canvas.pixels == NULL) return false;
  fill(&canvas, 0, 0, canvas.width, height, kPaper);
  drawMap(&canvas, heights, width, zMin, zMax, spacing);
  drawColorBar(&canvas, width + 20, zMin, zMax);
  drawLengthBar(&canvas, width, spacing);
  written = writePng(file, (const uint8_t*)canvas.pixels, (size_t)canvas.width * sizeof(Color), 8,
                     PNG_COLOR_TYPE_RGB, canvas.width, height);
  free(canvas.pixels);
  return written;
}

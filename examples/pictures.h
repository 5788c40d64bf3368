/* Writes height maps as PNG pictures. All functions return false when the file cannot be written.
 */
#ifndef PLANEX_EXAMPLES_PICTURES_H_
#define PLANEX_EXAMPLES_PICTURES_H_

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

/* Grey picture of 8 or 16 bits per pixel; 16-bit values in the byte order of the machine. */
bool writeGreyPng(FILE* file, const void* pixels, int bits, int width, int height);

/* Height map in false colour with relief shading, a colour bar with numbers and a length bar.
   Heights and spacing (of columns and rows alike) in mm; missing heights are NaN and stay black. */
bool writeColorPng(FILE* file, const float* heights, int width, int height, double zMin,
                   double zMax, double spacing);

#endif

/* Reads what simulate_scan (or a real acquisition) left in a folder. */
#ifndef PLANEX_EXAMPLES_SCAN_FILES_H_
#define PLANEX_EXAMPLES_SCAN_FILES_H_

#include <planex/api/planex.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct Scan {
  ImageSize size;        /* columns and profiles */
  SensorTraits traits;   /* where on the sensor the range values lie */
  double profileSpacing; /* mm between profiles */
  double rowNoise;       /* standard deviation of the line position, in pixels */
  uint16_t* range;       /* size.width x size.height values, 0 where nothing was measured */
  uint8_t* intensity;    /* as many */
} Scan;

/* Reads scan.txt, range.pgm and intensity.pgm. Prints the reason and returns false on failure;
   the scan is to be freed in both cases. */
bool readScan(const char* folder, Scan* scan);

void freeScan(Scan* scan);

/* Opens a file of the folder; prints the reason when it cannot be opened. */
FILE* openIn(const char* folder, const char* name, const char* mode);

#ifdef __cplusplus
}
#endif

#endif

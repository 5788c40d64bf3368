#include "planex/estimation/plain_format.h"

#include <locale.h>

#include <cstdarg>
#include <cstdio>

namespace planex::estimation {

std::string plainFormat(const char* pattern, ...) {
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  const locale_t former = uselocale(plain);  // of this thread
  char text[500];
  va_list arguments;
  va_start(arguments, pattern);
  std::vsnprintf(text, sizeof text, pattern, arguments);
  va_end(arguments);
  uselocale(former);
  return text;
}

}  // namespace planex::estimation

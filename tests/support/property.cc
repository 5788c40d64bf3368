#include "tests/support/property.h"

#include <cstdio>
#include <cstdlib>

namespace test {

std::vector<Property>& properties() {
  static std::vector<Property> known;
  return known;
}

bool addProperty(const Property& property) {
  properties().push_back(property);
  return true;
}

void endCase(const char* file, int line, const char* condition, bool isExcused) {
  if (isExcused) throw CaseEnds();
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

void CheckedLog::CheckCall(bool succeeded) {
  // A record that there is no memory for is dropped.
  const bool isTold = Severe() == 1 || Warnings() >= 1 || MemoryFaults::struck;
  CHECK_ALWAYS(Severe() <= (succeeded ? 0 : 1));
  CHECK_ALWAYS(succeeded || isTold);
  Clear();
}

void CheckedLog::CheckRefusal(bool succeeded) {
  CHECK_ALWAYS(Severe() == 0);
  const int wanted = succeeded ? Warnings() : 1;
  CHECK_ALWAYS(Warnings() == wanted || MemoryFaults::struck);
  Clear();
}

}  // namespace test

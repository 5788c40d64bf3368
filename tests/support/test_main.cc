#include <gmock/gmock.h>
#include <langinfo.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <stdexcept>

int main(int argc, char** argv) {
  try {
    // That of the environment, for the C library, too, as in programs with a user interface.
    std::locale::global(std::locale(""));
  } catch (const std::runtime_error&) {
    std::fputs("The system does not have the locale of the environment.\n", stderr);
  }
  // Set where the tests are about a locale whose numbers have another decimal point.
  if (std::getenv("PLANEX_REQUIRE_LOCALE") != nullptr &&
      std::strcmp(nl_langinfo(RADIXCHAR), ".") == 0) {
    return 1;
  }
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}

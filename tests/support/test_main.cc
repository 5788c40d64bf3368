#include <gmock/gmock.h>
#include <langinfo.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale>
#include <stdexcept>

namespace {

/// Takes the locale of the environment over into the C and the C++ library, as programs with a user
/// interface do. @return false where the system does not have it
bool adoptLocale() {
  if (std::setlocale(LC_ALL, "") == nullptr) return false;
  try {
    std::locale::global(std::locale(""));
  } catch (const std::runtime_error&) {
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const bool adopted = adoptLocale();
  // Set where the tests are about a locale whose numbers have another decimal point.
  if (std::getenv("PLANEX_REQUIRE_LOCALE") != nullptr &&
      (!adopted || std::strcmp(nl_langinfo(RADIXCHAR), ".") == 0)) {
    std::fputs("The locale of the environment is not in force.\n", stderr);
    return 1;
  }
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}

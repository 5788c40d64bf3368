#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "tests/support/log_capture.h"

namespace test {

/// What a capture of the log has taken of a warning, or of no record without a text.
inline std::string warning(const char* text) {
  return text == nullptr || *text == '\0' ? "" : std::string("WARNING: ") + text;
}

/// One of the checks of a function: what makes it fail, and the warning that says so, "" where
/// nothing does; without a text the arguments are accepted. `other` is the text of a second form of
/// the function.
template <typename Arguments>
struct Check {
  void (*spoil)(Arguments&);
  const char* text;
  const char* other = nullptr;
};

/// Every check fails alone, and before all that come after it in the table.
/// @param call (Arguments&) -> whether done; may look at the outputs, too
template <typename Arguments, std::size_t N, typename Call>
void expectChecksInOrder(const Check<Arguments> (&checks)[N], Call call,
                         const char* Check<Arguments>::*text = &Check<Arguments>::text) {
  for (std::size_t i = 0; i < N; ++i) {
    const bool accepted = checks[i].*text == nullptr;
    for (const std::size_t last : {i, accepted ? i : N - 1}) {
      SCOPED_TRACE(testing::Message() << "rows " << i << " to " << last);
      Arguments arguments;
      for (std::size_t j = last; j > i; --j) {
        if (checks[j].*text != nullptr) checks[j].spoil(arguments);
      }
      checks[i].spoil(arguments);
      LogCapture log;
      EXPECT_EQ(call(arguments), accepted);
      EXPECT_EQ(log.TakeOne("Image.Calibration.Planex"), warning(checks[i].*text));
    }
  }
}

}  // namespace test

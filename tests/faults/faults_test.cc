// What must hold, with every allocation failing in turn: once, or from there on.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <limits>
#include <new>
#include <string>

#include "planex/api/planex.h"
#include "planex/infra/logger.h"
#include "planex/model/calibration_model.h"
#include "tests/support/handles.h"
#include "tests/support/instruction_sets.h"
#include "tests/support/model_builders.h"
#include "tests/support/stored_inputs.h"

namespace test {
namespace {

constexpr long kMostFaults = 100;  // of one kind in one case, spread over its allocations
constexpr long kForever = std::numeric_limits<long>::max();

/// @return whether the fault has struck
bool runWithFault(const std::function<void()>& body, long first, long last) {
  MemoryFaults::struck = false;
  MemoryFaults::requests = 0;
  MemoryFaults::first = first;
  MemoryFaults::last = last;
  try {
    body();
  } catch (const std::bad_alloc&) {
    CHECK_ALWAYS(MemoryFaults::struck);
  } catch (const CaseEnds&) {
  }
  MemoryFaults::last = 0;
  return MemoryFaults::struck.exchange(false);
}

/// Runs the body with every allocation failing in turn; no block must be left behind.
void runWithEveryFault(const std::function<void()>& body) {
  // What is made once and stays would count as left behind.
  for (const char* name : {"Image", "Image.Calibration.Planex", "Image.Planex.Model", "Matrix"}) {
    base::Logger::Get(name);
  }
  body();
  runWithFault(body, kForever, 0);
  const long count = MemoryFaults::requests;
  for (const bool goesOn : {false, true}) {
    for (long number = 1; number <= count; number += 1 + count / kMostFaults) {
      destroyAll();
      const long before = MemoryFaults::liveBlocks;
      runWithFault(body, number, goesOn ? kForever : number);
      destroyAll();  // of a case that has ended early
      ASSERT_EQ(MemoryFaults::liveBlocks, before) << "allocation " << number << " of " << count;
    }
  }
  body();
}

class PropertyFaults : public ::testing::TestWithParam<Property> {
 protected:
  PropertyFaults() { useThreads(2); }
};

TEST_P(PropertyFaults, LeaveEverythingAsItWas) {
  int number = 0;
  for (const Input& input : storedInputs(GetParam())) {
    SCOPED_TRACE("stored input " + std::to_string(number++));
    runWithEveryFault([&] { run(GetParam(), input); });
    if (HasFailure()) return;
  }
}

/// The first calls of a process with a fault among them, then the same calls with enough memory.
TEST_P(PropertyFaults, OfTheFirstUseAreSurvived) {
  const Input input = storedInputs(GetParam()).back();
  for (const bool goesOn : {false, true}) {
    bool hasStruck = true;
    for (long number = 1; hasStruck; number += number < 20 ? 1 : 17) {
      const pid_t child = fork();
      ASSERT_GE(child, 0);
      if (child == 0) {
        const auto body = [&] { run(GetParam(), input); };
        hasStruck = runWithFault(body, number, goesOn ? kForever : number);
        body();
        std::_Exit(hasStruck ? 1 : 0);
      }
      int status = 0;
      ASSERT_EQ(waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFEXITED(status)) << "allocation " << number;
      hasStruck = WEXITSTATUS(status) == 1;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, PropertyFaults, ::testing::ValuesIn(properties()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(Faults, ChangeAModelAltogetherOrNotAtAll) {
  CalibrationModel source = fullModel();
  ASSERT_TRUE(source.CalibratedRegion.Resize(3, 2));
  const std::function<bool(CalibrationModel&)> changes[] = {
      [&](auto& model) { return model = source, true; },
      [](auto& model) { return model.reset(), true; },
      [](auto& model) {
        return model.mirror(true, {1.0, 2.0});
      },
      [](auto& model) { return model.setPose({}); },
      [](auto& model) { return model.CalibratedRegion.Resize(5, 4); },
  };
  for (const auto& change : changes) {
    SCOPED_TRACE(&change - changes);
    CalibrationModel plain = plainModel();
    CalibrationModel changed = plain;
    ASSERT_TRUE(change(changed));
    const std::string texts[] = {toJson(plain), toJson(changed)};
    runWithEveryFault([&] {
      CalibrationModel model = plain;
      const bool done = succeeds([&] { return change(model); });
      const MayFail no(false);
      CHECK_ALWAYS(toJson(model) == texts[done ? 1 : 0]);
    });
  }
}

TEST(Faults, LoseTheTextOfARefusalOnly) {
  static int heard;
  const auto refuse = []() noexcept {
    uint32_t unknown = 4711;
    CHECK_ALWAYS(!destroyModel(&unknown) && unknown == 4711);
  };
  const auto hear = [](const char*) { ++heard; };
  registerLogHandler(hear);
  runWithEveryFault([&] {
    succeeds([&] { return registerLogHandler(hear), true; });
    refuse();
    const MayFail no(false);
    const int before = heard;
    refuse();
    CHECK_ALWAYS(heard == before + 1);
  });
  base::Logger::GetRoot().RemoveAllHandlers(true);  // the interface installs its own
  EXPECT_TRUE(runWithFault(refuse, 1, kForever));
}

}  // namespace
}  // namespace test

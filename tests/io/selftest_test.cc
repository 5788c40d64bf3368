#include "planex/scan/selftest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace planex::scan {
namespace {

// The command reports just what this finds, and its exit status is whether that is anything.
TEST(Selftest, FindsWhatIsNotAsPublished) {
  std::vector<ReferenceScene> published = referenceScenes();
  const ReferenceScene changed = published[0], missing = published[1];
  char& digit = published[0].sha256[63];
  digit = digit == '0' ? '1' : '0';
  published[1].name = "nobody computes this";
  const auto before = cmnalg::currentInstructionSet();

  const auto found = runSelftest(published, {{cmnalg::InstructionSet::Avx512, 1, 5}});

  ASSERT_EQ(found.size(), 3U);
  EXPECT_EQ(found[0].name, changed.name);
  EXPECT_EQ(found[0].published, published[0].sha256);
  EXPECT_EQ(found[0].found, changed.sha256);
  EXPECT_EQ(found[0].way.rows, 5);
  EXPECT_EQ(found[1].name, missing.name);
  EXPECT_EQ(found[1].published + found[1].found, missing.sha256);
  EXPECT_EQ(found[2].name, published[1].name);
  EXPECT_EQ(found[2].found, "");
  EXPECT_EQ(cmnalg::currentInstructionSet(), before);
}

}  // namespace
}  // namespace planex::scan

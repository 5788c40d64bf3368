#include "planex/processing/row_parallel.h"

#include <gtest/gtest.h>
#include <omp.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "planex/processing/thread_limit.h"
#include "tests/support/instruction_sets.h"

namespace datafusion::threading_helpers {
namespace {

std::vector<std::pair<int, int>> blocksOf(int begin, int end, int threads) {
  omp_set_num_threads(threads);
  std::mutex mutex;
  std::vector<std::pair<int, int>> blocks;
  forEachRowBlock(begin, end, 10, [&](int first, int last) {
    const std::lock_guard<std::mutex> lock(mutex);
    blocks.emplace_back(first, last);
  });
  std::sort(blocks.begin(), blocks.end());
  return blocks;
}

TEST(RowParallel, GivesTheFirstThreadsOneRowMore) {
  using Blocks = std::vector<std::pair<int, int>>;
  setMinimumPixelsPerThread(kDefaultMinimumPixelsPerThread);
  EXPECT_EQ(blocksOf(0, 100, 4), (Blocks{{0, 100}})) << "small work stays on the calling thread";
  test::useThreads(3);
  EXPECT_EQ(getThreadCount(), 3);
  EXPECT_EQ(blocksOf(5, 15, 4), (Blocks{{5, 8}, {8, 11}, {11, 13}, {13, 15}}));
  EXPECT_EQ(blocksOf(0, 2, 7), (Blocks{{0, 1}, {1, 2}}));
  EXPECT_EQ(blocksOf(0, 9, 1), (Blocks{{0, 9}}));
  EXPECT_EQ(blocksOf(3, 3, 4), Blocks{});
  const planex::ThreadLimit two(2);
  EXPECT_EQ(blocksOf(0, 9, 4), (Blocks{{0, 5}, {5, 9}}));
  {
    const planex::ThreadLimit none(0), wider(5);
    EXPECT_EQ(blocksOf(0, 9, 4), (Blocks{{0, 9}})) << "the smallest limit counts";
    std::thread([] { EXPECT_EQ(blocksOf(0, 3, 3).size(), 3U); }).join();
  }
  EXPECT_EQ(blocksOf(0, 9, 4).size(), 2U);
}

TEST(RowParallel, MakesNoTeamInAChildOfOne) {
  test::useThreads(3);
  ASSERT_EQ(blocksOf(0, 9, 3).size(), 3U);
  const auto worksAlone = [] {
    alarm(60);
    std::_Exit(getThreadCount() == 1 && blocksOf(0, 9, 3).size() == 1 ? 0 : 1);
  };
  EXPECT_EXIT(worksAlone(), testing::ExitedWithCode(0), "");
}

TEST(RowParallel, CarriesAnExceptionOutOfTheTeam) {
  for (const int threads : {1, 4}) {
    test::useThreads(threads);
    const auto fail = [](int first, int) {
      if (first == 0) throw std::length_error("row");
    };
    EXPECT_THROW(forEachRowBlock(0, 8, 10, fail), std::length_error);
  }
}

}  // namespace
}  // namespace datafusion::threading_helpers

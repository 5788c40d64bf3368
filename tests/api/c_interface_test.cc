#include <cstdio>
#include <fstream>
#include <string>

#include "tests/api/api_test.h"
#include "tests/api/c_calls.h"

namespace test {
namespace {

TEST_F(ApiTest, WholeChainFromC) {
  const std::string path = ::testing::TempDir() + "planex_c_interface_test.json";
  std::ofstream(path) << kModelDocument;
  EXPECT_STREQ(callEveryFunctionFromC(kModelDocument.c_str(), path.c_str()), nullptr);
  std::remove(path.c_str());
}

}  // namespace
}  // namespace test

#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/support/handles.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_documents.h"

namespace test {

/// The handle of a model read from the document.
inline uint32_t makeModel(const std::string& document = kModelDocument) {
  uint32_t handle = 0;
  EXPECT_TRUE(createModelFromJson(document.c_str(), &handle));
  return handle;
}

/// Starts each test with empty registries and its own log callback.
class ApiTest : public ::testing::Test {
 protected:
  ApiTest() { destroyAll(); }
  ~ApiTest() override { destroyAll(); }

  LogCapture log;
};

}  // namespace test

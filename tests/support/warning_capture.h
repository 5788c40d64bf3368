#pragma once

#include "tests/support/log_capture.h"

using WarningCapture = test::LogCapture;

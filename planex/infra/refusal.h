#pragma once

#include "planex/infra/logger.h"

namespace base {

/// Logs one warning. @return false, for the refusing function to return
inline bool refuse(const char* logger, const char* reason) {
  Logger::Get(logger).Warning("%s", reason);
  return false;
}

}  // namespace base

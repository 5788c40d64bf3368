#include "planex/api/log_callback_handler.h"
#include "planex/api/planex.h"

void registerLogHandler(void (*callback)(const char*)) {
  tavik::planex::installLogCallback(callback);
}

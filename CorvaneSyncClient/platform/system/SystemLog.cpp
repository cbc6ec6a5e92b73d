#include "CorvaneSyncClient/platform/system/SystemLog.h"

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

void writeToSystemLog(std::string_view message) {
  Platform::current().log.write(SystemLog::Kind::message, message);
}

void reportProblem(const Message& problem) { Platform::current().log.writeMessage(problem); }

}  // namespace corvane

#include "CorvaneSyncClient/platform/system/SCLog.h"

#include <exception>

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

namespace {

enum class Switch { notYetRead = -1, off = 0, on = 1 };

Switch diagnosticSwitch = Switch::notYetRead;

Switch readSwitch() {
  try {
    const std::optional<Value> preference =
        Platform::current().preferences.value("com.keldra.Corvane", "SCLog");
    return preference && preference->string() == "YES" ? Switch::on : Switch::off;
  } catch (const std::exception&) {
    return Switch::off;  // a trace must not be what a run fails of
  }
}

}  // namespace

bool SCLogIsOn() {
  if (diagnosticSwitch == Switch::notYetRead) diagnosticSwitch = readSwitch();
  return diagnosticSwitch == Switch::on;
}

void SCLogWrite(std::string_view message) {
  Platform::current().log.write(SystemLog::Kind::diagnostic, message);
}

}  // namespace corvane

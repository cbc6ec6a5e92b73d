#include "CorvaneSyncClient/platform/system/linux/SdBusNotificationCenter.h"

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/LoadedLibrary.h"

namespace corvane {

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{3};
constexpr const char* kPath = "/com/keldra/DistributedNotificationCenter";
constexpr const char* kInterface = "com.keldra.DistributedNotificationCenter";
constexpr const char* kMember = "NotificationPosted";

// Of libsystemd, which stands on six further libraries, and of which a run that saves nothing needs nothing.
struct SdBus {
  static LoadedFunction named(const char* name) { return loadedFunction({"libsystemd.so.0"}, name); }

  decltype(&sd_bus_open_user) openUser = named("sd_bus_open_user");
  decltype(&sd_bus_close_unref) closeUnref = named("sd_bus_close_unref");
  decltype(&sd_bus_emit_signal) emitSignal = named("sd_bus_emit_signal");
  decltype(&sd_bus_is_ready) isReady = named("sd_bus_is_ready");
  decltype(&sd_bus_get_n_queued_write) queuedWrites = named("sd_bus_get_n_queued_write");
  decltype(&sd_bus_process) process = named("sd_bus_process");
  decltype(&sd_bus_wait) wait = named("sd_bus_wait");
};

// Raises MissingLibraryException.
const SdBus& sdBus() {
  static const SdBus loaded;
  return loaded;
}

// Closes without waiting for what is not yet written: sd-bus's own flush has no time limit.
struct CloseBus {
  void operator()(sd_bus* bus) const { sdBus().closeUnref(bus); }
};

// The text of an sd-bus error, which is an errno value negated.
std::string failure(const char* step, int result) {
  return std::string(step) + ": " + std::system_category().message(-result);
}

// Whether the connection stands and everything queued is written; negative on an error.
int isWritten(sd_bus* bus) {
  const int ready = sdBus().isReady(bus);
  if (ready <= 0) return ready;
  std::uint64_t queued = 0;
  const int result = sdBus().queuedWrites(bus, &queued);
  return result < 0 ? result : queued == 0;
}

// Runs the connection until everything is written, within the given time. 0, or a negative error.
int writeOut(sd_bus* bus, SteadyClock::time_point end) {
  while (true) {
    const int written = isWritten(bus);
    if (written != 0) return written < 0 ? written : 0;
    const int processed = sdBus().process(bus, nullptr);
    if (processed < 0) return processed;
    if (processed > 0) continue;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(end - SteadyClock::now());
    if (left.count() <= 0) return -ETIMEDOUT;
    const int waited = sdBus().wait(bus, static_cast<std::uint64_t>(left.count()));
    if (waited < 0 && waited != -EINTR) return waited;
  }
}

// What went wrong; nothing where the signal was handed over.
std::optional<std::string> emit(const std::string& name, const std::string& object) {
  const SteadyClock::time_point end = SteadyClock::now() + kPatience;
  sd_bus* opened = nullptr;
  if (const int result = sdBus().openUser(&opened); result < 0) return failure("no session bus", result);
  const std::unique_ptr<sd_bus, CloseBus> bus(opened);
  const int result =
      sdBus().emitSignal(bus.get(), kPath, kInterface, kMember, "ss", name.c_str(), object.c_str());
  if (result < 0) return failure("cannot build the signal", result);
  if (const int written = writeOut(bus.get(), end); written < 0) return failure("session bus", written);
  return std::nullopt;
}

}  // namespace

std::optional<std::string> SdBusNotificationCenter::post(const std::string& name, const std::string& object) {
  try {
    return emit(name, object);
  } catch (const MissingLibraryException& exception) {
    return "no session bus: " + exception.reason();
  }
}

}  // namespace corvane

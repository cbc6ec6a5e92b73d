// corvane-service-bench: measures what the online service costs, with real computers' stores and real places.
// The exit status is 1 when something failed or computers of one account do not agree in the end, 2 for a
// command line that cannot be followed.

#include <signal.h>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "CorvaneSyncClient/platform/system/bundles/LinuxBundleLoader.h"
#include "bench/service/Benches.h"
#include "bench/service/Options.h"

namespace {

using namespace corvane;
using namespace corvane::servicebench;

// A session that goes well writes nothing.
class NoComplaints : public SystemLog {
 public:
  void write(Kind /*kind*/, std::string_view message) override {
    throw std::runtime_error(std::string(message));
  }
};

// What the engine stands on, but for the log.
class Stand {
 public:
  Stand() : _bundles(linuxPlatform().files, CORVANE_CLIENT_PROGRAMS "/corvane-service-bench", {"en"}) {}

 private:
  const Platform& _real = linuxPlatform();
  NoComplaints _log;
  LinuxBundleLoader _bundles;
  Platform _platform{_real.clock,       _real.uuids, _real.process,       _real.files,
                     _real.preferences, _log,        _real.notifications, _bundles};
  PlatformScope _scope{_platform};
};

void carryOut(const Options& options) {
  const Stand stand;
  if (options.what == "places") benchPlaces(options.places, options.records);
  if (options.what == "records") benchRecords(options.records);
  if (options.what == "accounts") benchAccounts(options.accounts);
  if (options.what == "year") benchYear(options.days, options.records.front());
}

}  // namespace

int main(int argc, char** argv) {
  try {
    ::signal(SIGPIPE, SIG_IGN);  // a connection that is lost is an error of its own
    carryOut(parseOptions({argv + 1, argv + argc}));
    return 0;
  } catch (const UsageError& error) {
    std::fprintf(stderr, "corvane-service-bench: %s\n%s", error.what(), kUsage);
    return 2;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "corvane-service-bench: %s\n", exception.what());
    return 1;
  }
}

#include <malloc.h>
#include <sys/prctl.h>

#include "CorvaneSyncClient/front/Commands.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace {

// A run allocates a great many objects, keeps most of them, and ends: giving memory back to the system in
// between, and taking blocks from it one by one, only costs time. But for the largest ones, such as the bytes
// of the file: they come and go, and the holes that they would leave are too large to be filled.
void tuneAllocator() {
  mallopt(M_MXFAST, 0);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 4 << 20);
  mallopt(M_TOP_PAD, 16 << 20);
}

}  // namespace

// One command a run. The services are the process's and live until it ends, and so does what a command makes.
int main(int argc, char** argv) {
  // The account's key and password pass through: nothing of them gets into a core dump. Cannot fail with this
  // argument.
  prctl(PR_SET_DUMPABLE, 0);
  tuneAllocator();
  const corvane::PlatformScope services(corvane::linuxPlatform());
  const corvane::EnglishScope forTheLog;
  return corvane::runCommand(corvane::parseCommandLine(argc, argv));
}

// Stands in for the feed agent's framework: startSync waits until the test lets go of the pipe that
// CORVANE_TEST_HOLD names, so that a run stands still while it holds its lock. Without the variable it
// answers at once. A file beside the pipe tells whether the run's memory can get into a core dump.

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

extern "C" void NuvoloClient_startSync() {
  const char* pipe = std::getenv("CORVANE_TEST_HOLD");
  if (!pipe) return;
  std::ofstream(std::string(pipe) + ".dumpable") << prctl(PR_GET_DUMPABLE);
  const int descriptor = open(pipe, O_RDONLY);  // waits for the test to open the other end
  if (descriptor < 0) return;
  char byte;
  while (read(descriptor, &byte, 1) > 0) continue;  // waits for the test to close it
  close(descriptor);
}

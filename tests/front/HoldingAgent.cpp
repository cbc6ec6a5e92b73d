// Stands in for the feed agent's framework: startSync waits until the test lets go of the pipe that
// CORVANE_TEST_HOLD names, so that a run stands still while it holds its lock. Without the variable it
// answers at once.

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

extern "C" void NuvoloClient_startSync() {
  const char* pipe = std::getenv("CORVANE_TEST_HOLD");
  if (!pipe) return;
  const int descriptor = open(pipe, O_RDONLY);  // waits for the test to open the other end
  if (descriptor < 0) return;
  char byte;
  while (read(descriptor, &byte, 1) > 0) continue;  // waits for the test to close it
  close(descriptor);
}

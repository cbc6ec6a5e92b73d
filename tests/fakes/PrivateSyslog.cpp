#include "tests/fakes/PrivateSyslog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace corvane {

void usePrivateSyslog(const std::string& file) {
  setenv("CORVANE_TEST_SYSLOG", file.c_str(), 1);
  // A list of libraries ends a name at a blank or a colon, and a build's directory may hold either: the
  // library is named by an open file, which the program inherits.
  const int library = open(CORVANE_PRIVATE_SYSLOG, O_RDONLY);
  if (library < 0) _exit(126);
  setenv("LD_PRELOAD", ("/proc/self/fd/" + std::to_string(library)).c_str(), 1);
  // AddressSanitizer wants to be the first library of all unless told otherwise.
  const char* options = std::getenv("ASAN_OPTIONS");
  setenv("ASAN_OPTIONS", ((options ? std::string(options) + ":" : "") + "verify_asan_link_order=0").c_str(),
         1);
}

std::vector<std::string> linesOfPrivateSyslog(const std::string& file) {
  std::ifstream log(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(log, line);) lines.push_back(line);
  return lines;
}

}  // namespace corvane

#include "tests/fakes/PrivateSyslog.h"

#include <cstdlib>
#include <fstream>

namespace corvane {

void usePrivateSyslog(const std::string& file) {
  setenv("CORVANE_TEST_SYSLOG", file.c_str(), 1);
  setenv("LD_PRELOAD", CORVANE_PRIVATE_SYSLOG, 1);
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

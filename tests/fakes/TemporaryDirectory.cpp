#include "tests/fakes/TemporaryDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace corvane {

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern =
      std::filesystem::canonical(std::filesystem::temp_directory_path()).string() + "/corvane-test-XXXXXX";
  if (!mkdtemp(pattern.data())) throw std::system_error(errno, std::system_category(), pattern);
  _path = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;  // a leftover in the system's temporary directory harms no other test
  std::filesystem::remove_all(_path, ignored);
}

}  // namespace corvane

#include "tests/fakes/FakePlatform.h"

#include <filesystem>

namespace corvane {

FakePlatform::FakePlatform() {
  process.home = directory / "home";
  process.temporary = directory / "tmp";
  makeDirectories(process.home);
  makeDirectories(process.temporary);
}

void FakePlatform::makeDirectories(const std::string& path) { std::filesystem::create_directories(path); }

}  // namespace corvane

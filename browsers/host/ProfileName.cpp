#include "browsers/host/ProfileName.h"

#include <unistd.h>

#include <filesystem>
#include <set>
#include <system_error>

namespace corvane::browsers {

namespace {

// The file that each browser has open as long as a profile is.
constexpr std::string_view kFirefoxFile = "/places.sqlite";
constexpr std::string_view kChromiumFile = "/History";
constexpr std::size_t kFirefoxSalt = 8;

std::string nameOfFolder(std::string_view folder, bool isFirefox) {
  const std::string_view name = folder.substr(folder.rfind('/') + 1);
  const bool isSalted = isFirefox && name.find('.') == kFirefoxSalt;
  return std::string(isSalted ? name.substr(kFirefoxSalt + 1) : name);
}

}  // namespace

std::string profileNameIn(std::string_view browser, const std::vector<std::string>& openFiles) {
  const bool isFirefox = browser == "firefox";
  const std::string_view file = isFirefox ? kFirefoxFile : kChromiumFile;
  std::set<std::string> folders;
  for (const std::string& each : openFiles) {
    if (each.ends_with(file)) folders.insert(each.substr(0, each.size() - file.size()));
  }
  return folders.size() == 1 ? nameOfFolder(*folders.begin(), isFirefox) : std::string();
}

std::vector<std::string> openFilesOfParent() {
  namespace fs = std::filesystem;
  std::vector<std::string> files;
  std::error_code error;  // of which each leaves the name away
  for (fs::directory_iterator each("/proc/" + std::to_string(::getppid()) + "/fd", error), end;
       !error && each != end; each.increment(error)) {
    std::error_code gone;
    const fs::path path = fs::read_symlink(each->path(), gone);
    if (!gone) files.push_back(path.string());
  }
  return files;
}

}  // namespace corvane::browsers

#include "CorvaneSyncClient/platform/system/bundles/LinuxBundleLoader.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"

namespace corvane {

namespace {

constexpr std::string_view kBrowserIdentifier = "com.keldra.Corvane";
constexpr std::string_view kToolInBrowser = "/Contents/CorvaneSyncClient.app/Contents/Linux";
constexpr std::string_view kOwnBundleInBrowser = "Contents/CorvaneSyncClient.app";
constexpr std::string_view kBrowserBesideBin = "lib/corvane/Corvane.app";
// Where there is only the server, what holds its texts.
constexpr std::string_view kServersTextsBesideBin = "share/corvane/hub";
constexpr std::string_view kSystemLibrary = "/System/Library/";

std::string parentOf(const std::string& path) { return std::filesystem::path(path).parent_path().string(); }

bool isDirectory(FileSystem& files, const std::string& path) {
  const std::optional<FileAttributes> attributes = files.attributesIfKnown(path);
  return attributes && attributes->kind == FileKind::directory;
}

// The path of the Corvane.app that `executable` lies in, or that belongs to the installation in whose "bin"
// it lies; empty where there is none.
std::string browserOf(FileSystem& files, const std::string& executable) {
  const std::string directory = parentOf(executable);
  if (directory.ends_with("/bin")) {
    const std::string installed = joinedPath(parentOf(directory), kBrowserBesideBin);
    return isDirectory(files, installed) ? installed : "";
  }
  if (!directory.ends_with(kToolInBrowser)) return "";
  const std::string browser = directory.substr(0, directory.size() - kToolInBrowser.size());
  return browser.ends_with("/Corvane.app") ? browser : "";
}

// The tool's bundle in the browser's, or beside a "bin" without that the one of the server; the executable's
// directory elsewhere.
std::string ownBundlePath(FileSystem& files, const std::string& executable, const std::string& browser) {
  const std::string directory = parentOf(executable);
  if (!browser.empty()) return joinedPath(browser, kOwnBundleInBrowser);
  const std::string installed = joinedPath(parentOf(directory), kServersTextsBesideBin);
  return directory.ends_with("/bin") && isDirectory(files, installed) ? installed : directory;
}

bool isLanguageName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
    return isAsciiLetter(c) || isAsciiDigit(c) || c == '_' || c == '-';
  });
}

}  // namespace

std::vector<std::string> preferredLanguages(std::string_view locale) {
  std::vector<std::string> languages;
  const std::string_view name = locale.substr(0, locale.find_first_of(".@"));
  if (isLanguageName(name) && name != "C" && name != "POSIX") {
    languages.emplace_back(name);
    const std::string_view language = name.substr(0, name.find_first_of("_-"));
    if (language != name && !language.empty()) languages.emplace_back(language);
  }
  if (languages.empty() || languages.back() != "en") languages.emplace_back("en");
  return languages;
}

std::string localeOfEnvironment() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value && *value) return value;
  }
  return "";
}

std::string runningExecutable() {
  std::error_code error;
  const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "" : path.string();
}

LinuxBundleLoader::LinuxBundleLoader(FileSystem& files, const std::string& executable,
                                     std::vector<std::string> languages)
    : _files(files),
      _languages(std::move(languages)),
      _browser(browserOf(files, executable)),
      _installation(parentOf(_browser)),
      _own(files, ownBundlePath(files, executable, _browser), _languages) {}

std::unique_ptr<Bundle> LinuxBundleLoader::bundleWithPath(const std::string& path) {
  std::vector<std::string> places{path};
  if (path.starts_with(kSystemLibrary) && !_installation.empty())
    places.push_back(joinedPath(_installation, path));
  for (const std::string& place : places) {
    if (isDirectory(_files, place)) return std::make_unique<DlopenBundle>(_files, place, _languages);
  }
  return nullptr;
}

std::unique_ptr<Bundle> LinuxBundleLoader::bundleWithIdentifier(const std::string& identifier) {
  if (identifier != kBrowserIdentifier || _browser.empty()) return nullptr;
  return std::make_unique<DlopenBundle>(_files, _browser, _languages);
}

}  // namespace corvane

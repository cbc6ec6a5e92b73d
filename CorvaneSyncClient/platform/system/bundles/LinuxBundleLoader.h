#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/system/bundles/DlopenBundle.h"

namespace corvane {

/// Finds bundles by path and, around the running tool, by identifier.
class LinuxBundleLoader : public BundleLoader {
 public:
  /// `executable` is the tool's path without symbolic links. `files` must outlive this object and its
  /// bundles. When the executable does not lie in
  /// ".../Corvane.app/Contents/CorvaneSyncClient.app/Contents/Linux", there is no browser bundle and no
  /// installation. The own bundle is then what is installed beside the executable's "bin", else the
  /// executable's directory.
  LinuxBundleLoader(FileSystem& files, const std::string& executable, std::vector<std::string> languages);

  std::unique_ptr<Bundle> bundleWithPath(const std::string& path) override;
  std::unique_ptr<Bundle> bundleWithIdentifier(const std::string& identifier) override;
  Bundle& ownBundle() override { return _own; }

 private:
  FileSystem& _files;
  std::vector<std::string> _languages;
  std::string _browser;       // the path of Corvane.app, or empty
  std::string _installation;  // the directory that holds it, or empty
  DlopenBundle _own;
};

/// The languages of a locale name such as "de_DE.UTF-8@euro", best first, then English: "de_DE", "de", "en".
/// English alone for "C", "POSIX", an empty name and one that could not be part of a path.
std::vector<std::string> preferredLanguages(std::string_view locale);

/// The locale that the environment names for messages: `LC_ALL`, else `LC_MESSAGES`, else `LANG`; empty
/// without one.
std::string localeOfEnvironment();

/// The running program's path without symbolic links; empty when the system does not know it.
std::string runningExecutable();

}  // namespace corvane

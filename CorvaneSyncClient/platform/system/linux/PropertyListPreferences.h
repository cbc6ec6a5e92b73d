#pragma once

#include "CorvaneSyncClient/platform/system/FileSystem.h"
#include "CorvaneSyncClient/platform/system/Preferences.h"
#include "CorvaneSyncClient/platform/system/ProcessInfo.h"

namespace corvane {

/// Preferences in property lists of any flavour under the home directory. Every call reads the file anew; a
/// file that cannot be read, is no property list, or holds no dictionary counts as absent, and so do all
/// files of a user without a home.
class PropertyListPreferences : public Preferences {
 public:
  /// Both must outlive this object.
  PropertyListPreferences(FileSystem& files, ProcessInfo& process) : _files(files), _process(process) {}

  std::optional<Value> value(const std::string& domain, const std::string& key) override;
  bool booleanUserDefault(const std::string& key) override;

 private:
  FileSystem& _files;
  ProcessInfo& _process;
};

}  // namespace corvane

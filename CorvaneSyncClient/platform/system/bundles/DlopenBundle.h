#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "CorvaneSyncClient/platform/system/Bundle.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

/// A bundle on disk. Its library, once opened, stays loaded until the process ends, also when this object
/// goes: its code may still be at work.
class DlopenBundle : public Bundle {
 public:
  /// `languages` in the order of preference, as `preferredLanguages` lists them. `files` must outlive this
  /// object.
  DlopenBundle(FileSystem& files, std::string path, std::vector<std::string> languages)
      : _files(files), _path(std::move(path)), _languages(std::move(languages)) {}

  std::string path() override { return _path; }
  bool load() override;
  bool hasClass(const std::string& name) override;
  ClassMethod classMethod(const std::string& className, const std::string& method) override;
  std::optional<std::string> resource(const std::string& name, const std::string& type) override;
  std::string localizedString(const std::string& key, const std::string& table) override;
  const StringsTable* translations(const std::string& table) override;

 private:
  std::vector<std::string> libraryPaths() const;
  std::vector<std::string> resourceDirectories() const;
  std::optional<StringsTable> readTable(const std::string& language, const std::string& table);
  std::optional<StringsTable> readTranslations(const std::string& table);
  const std::vector<Dictionary>& stringsTables(const std::string& table);

  FileSystem& _files;
  std::string _path;
  std::vector<std::string> _languages;
  void* _library = nullptr;
  std::map<std::string, std::vector<Dictionary>>
      _stringsTables;  // by table name; one dictionary a language that has it
  std::map<std::string, std::optional<StringsTable>> _translations;  // by table name, once looked for
};

}  // namespace corvane

#pragma once

#include <memory>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

/// A table of texts in one language.
struct StringsTable {
  std::string language;  ///< "de", or "de_AT"
  Dictionary texts;      ///< by English text; a text, or a dictionary of its plural forms
};

/// A directory with code and resources. The bundle "…/NAME.EXTENSION" holds its shared library, if any, at
/// "Contents/Linux/libNAME.so" or, as frameworks do, at "libNAME.so", and its resources in
/// "Contents/Resources" or in "Resources"; the former of two that are both there wins.
class Bundle {
 public:
  virtual ~Bundle() = default;
  /// Its directory, for messages.
  virtual std::string path() = 0;
  /// Opens its shared library, once. False when it has none, or when it cannot be opened, for a cause that
  /// the system log names.
  virtual bool load() = 0;
  /// Whether the loaded library has a class of this name: it exports a C symbol "NAME" or any "NAME_…". False
  /// before `load`.
  virtual bool hasClass(const std::string& name) = 0;
  /// The class method as a callable: the exported C symbol "CLASS_METHOD" of type void(); null when there is
  /// none, and before `load`. It may raise PlatformException.
  using ClassMethod = void (*)();
  virtual ClassMethod classMethod(const std::string& className, const std::string& method) = 0;
  /// The path of "Resources/NAME.TYPE"; nothing when there is no such file.
  virtual std::optional<std::string> resource(const std::string& name, const std::string& type) = 0;
  /// The user's language's text for `key` in "Resources/LANG.lproj/TABLE.strings", else the English one's;
  /// `key` itself without either.
  virtual std::string localizedString(const std::string& key, const std::string& table) = 0;
  /// The same table as a whole, in the best of the user's languages that has it. Null where that is English,
  /// whose texts are the keys: nothing is read then. Once asked for, it may be asked for in several threads.
  virtual const StringsTable* translations(const std::string& table) = 0;
};

/// The table that is meant when none is named.
inline constexpr const char* kDefaultStringsTable = "Localizable";

/// The program's own bundle's text for `key`, as `Bundle::localizedString` finds it.
std::string localized(const std::string& key, const std::string& table = kDefaultStringsTable);

/// Where bundles come from.
class BundleLoader {
 public:
  virtual ~BundleLoader() = default;
  /// The bundle at `path`; null when there is no directory. Paths under /System/Library are looked for at the
  /// root first, then under the installation's own "System/Library".
  virtual std::unique_ptr<Bundle> bundleWithPath(const std::string& path) = 0;
  /// The bundle of an identifier: the browser's resolves to the "Corvane.app" around the running tool. Null
  /// for others.
  virtual std::unique_ptr<Bundle> bundleWithIdentifier(const std::string& identifier) = 0;
  /// The tool's own bundle ("CorvaneSyncClient.app"), for resources and localised strings. Always answers
  /// one.
  virtual Bundle& ownBundle() = 0;
};

}  // namespace corvane

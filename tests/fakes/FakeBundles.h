#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/system/Bundle.h"

namespace corvane {

/// A bundle without files behind it. As with a real one, nothing of its code is there before `load`.
class FakeBundle : public Bundle {
 public:
  std::string path() override { return location; }
  bool load() override { return loaded = loadable; }
  bool hasClass(const std::string& name) override { return loaded && classes.contains(name); }
  ClassMethod classMethod(const std::string& className, const std::string& method) override;
  std::optional<std::string> resource(const std::string& name, const std::string& type) override;
  std::string localizedString(const std::string& key, const std::string& table) override;
  const StringsTable* translations(const std::string& table) override;

  std::string location;
  bool loadable = true;
  bool loaded = false;
  std::set<std::string> classes;
  std::map<std::pair<std::string, std::string>, ClassMethod> methods;        ///< by class and method
  std::map<std::string, std::string> resources;                              ///< path by "NAME.TYPE"
  std::map<std::string, std::map<std::string, std::string>> localizedTexts;  ///< by table and key
  std::map<std::string, StringsTable> translatedTables;                      ///< by name; none is English
};

/// The bundles that a test declares. The bundles handed out are copies of the declared ones.
class FakeBundles : public BundleLoader {
 public:
  FakeBundles();
  std::unique_ptr<Bundle> bundleWithPath(const std::string& path) override;
  std::unique_ptr<Bundle> bundleWithIdentifier(const std::string& identifier) override;
  Bundle& ownBundle() override { return own; }

  std::map<std::string, FakeBundle> byPath;
  std::map<std::string, FakeBundle> byIdentifier;
  FakeBundle own;

  /// A class method that counts its calls in `methodCalls`.
  static void countingMethod();
  /// Counts likewise and then raises PlatformException "FakeException" with the reason "fake reason".
  static void raisingMethod();
  /// Since the newest FakeBundles was made. Class methods are plain functions, hence one count for the
  /// process.
  static int methodCalls;
};

}  // namespace corvane

#include "tests/fakes/FakeBundles.h"

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane {

namespace {

std::unique_ptr<Bundle> copyOf(const std::map<std::string, FakeBundle>& bundles, const std::string& key) {
  const auto found = bundles.find(key);
  return found == bundles.end() ? nullptr : std::make_unique<FakeBundle>(found->second);
}

}  // namespace

Bundle::ClassMethod FakeBundle::classMethod(const std::string& className, const std::string& method) {
  const auto found = methods.find({className, method});
  return loaded && found != methods.end() ? found->second : nullptr;
}

std::optional<std::string> FakeBundle::resource(const std::string& name, const std::string& type) {
  const auto found = resources.find(name + "." + type);
  return found == resources.end() ? std::nullopt : std::optional(found->second);
}

std::string FakeBundle::localizedString(const std::string& key, const std::string& table) {
  const auto& texts = localizedTexts[table];
  const auto found = texts.find(key);
  return found == texts.end() ? key : found->second;
}

const StringsTable* FakeBundle::translations(const std::string& table) {
  const auto found = translatedTables.find(table);
  return found == translatedTables.end() ? nullptr : &found->second;
}

int FakeBundles::methodCalls = 0;

FakeBundles::FakeBundles() {
  methodCalls = 0;
  own.location = "/fake/Corvane.app/Contents/CorvaneSyncClient.app";
}

std::unique_ptr<Bundle> FakeBundles::bundleWithPath(const std::string& path) { return copyOf(byPath, path); }

std::unique_ptr<Bundle> FakeBundles::bundleWithIdentifier(const std::string& identifier) {
  return copyOf(byIdentifier, identifier);
}

void FakeBundles::countingMethod() { ++methodCalls; }

void FakeBundles::raisingMethod() {
  ++methodCalls;
  throw PlatformException("FakeException", "fake reason");
}

}  // namespace corvane

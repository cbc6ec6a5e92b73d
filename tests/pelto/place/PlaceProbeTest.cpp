#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "CorvaneSyncClient/platform/pelto/place/DirectoryPlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceProbe.h"
#include "tests/fakes/TemporaryDirectory.h"

// Places of every kind of fault.

namespace corvane::pelto {
namespace {

using testing::HasSubstr;

// What the ways to one place in memory have in common, and what is wrong with it.
struct Shared {
  std::mutex mutex;
  std::map<std::string, std::string> objects;
  bool replaces = false, isRacy = false, keepsTheLast = false, tellsNobody = false, forgetsInListing = false,
       removesNothing = false, hasTags = true, isRefusing = false;
  std::size_t longest = 100 << 20;
};

class FaultyPlace : public Place {
 public:
  explicit FaultyPlace(Shared& shared) : _shared(shared) {}

  Made putNew(const std::string& name, std::string_view bytes) override {
    if (_shared.isRefusing && !name.ends_with("new")) throw PlaceRefusedException("refused");
    if (_shared.isRacy) {
      const bool isThere = has(name);
      std::this_thread::yield();
      if (isThere) return Made::present;
      write(name, bytes);
      return Made::made;
    }
    const std::lock_guard lock(_shared.mutex);
    const bool isNew = _shared.objects.emplace(name, bytes).second;
    if (!isNew && (_shared.replaces || (_shared.keepsTheLast && !name.ends_with("new"))))
      _shared.objects[name] = bytes;
    if (_shared.replaces) return Made::made;
    if (_shared.tellsNobody && !name.ends_with("new")) return Made::unknown;
    return isNew ? Made::made : Made::present;
  }
  void put(const std::vector<NamedBytes>& objects) override {
    for (const NamedBytes& object : objects) {
      if (object.bytes.size() > _shared.longest) throw PlaceFullException("413");
      write(object.name, object.bytes);
    }
  }
  std::vector<GetAnswer> get(const std::vector<GetRequest>& requests) override {
    std::vector<GetAnswer> answers;
    const std::lock_guard lock(_shared.mutex);
    for (const GetRequest& request : requests) {
      const auto found = _shared.objects.find(request.name);
      if (found == _shared.objects.end()) {
        answers.emplace_back();
      } else if (request.tag == "t") {
        answers.push_back({GetAnswer::State::unchanged, {}, "t"});
      } else {
        answers.push_back({GetAnswer::State::present, found->second, _shared.hasTags ? "t" : ""});
      }
    }
    return answers;
  }
  std::vector<PlaceObject> list(const std::string& folder) override {
    std::vector<PlaceObject> objects;
    const std::lock_guard lock(_shared.mutex);
    for (const auto& [name, bytes] : _shared.objects) {
      if (name.starts_with(folder + '/')) objects.push_back({name, bytes.size(), {}});
    }
    if (_shared.forgetsInListing && !objects.empty()) objects.pop_back();
    return objects;
  }
  void remove(const std::vector<std::string>& names) override {
    if (_shared.removesNothing) return;
    const std::lock_guard lock(_shared.mutex);
    for (const std::string& name : names) _shared.objects.erase(name);
  }
  Message description() const override { return "the test"; }
  std::string software() const override { return "Test/1"; }

 private:
  bool has(const std::string& name) {
    const std::lock_guard lock(_shared.mutex);
    return _shared.objects.contains(name);
  }
  void write(const std::string& name, std::string_view bytes) {
    const std::lock_guard lock(_shared.mutex);
    _shared.objects[name] = bytes;
  }

  Shared& _shared;
};

std::string refusalOf(Shared& shared) {
  try {
    probePlace([&] { return std::make_unique<FaultyPlace>(shared); });
  } catch (const PlaceException& exception) {
    return exception.reason();
  }
  return "(none)";
}

TEST(PlaceProbeTest, AFitPlaceIsDescribedAndLeftAsItWas) {
  Shared shared;
  shared.objects["other/1"] = "x";
  const PlaceFindings findings = probePlace([&] { return std::make_unique<FaultyPlace>(shared); }, 7);
  EXPECT_EQ(findings.software, "Test/1");
  EXPECT_EQ(findings.rounds, 7);
  EXPECT_TRUE(findings.caveats.empty());
  EXPECT_EQ(shared.objects.size(), 1U);
}

TEST(PlaceProbeTest, ADirectoryIsFit) {
  TemporaryDirectory directory;
  const PlaceFindings findings =
      probePlace([&] { return std::make_unique<DirectoryPlace>(directory.path(), after(300)); });
  EXPECT_THAT(findings.software, testing::AnyOf("a disk of this computer", "a share"));
  EXPECT_EQ(findings.caveats.size(), 1U);
  EXPECT_TRUE(std::filesystem::is_empty(directory / "probe"));
}

TEST(PlaceProbeTest, APlaceWhereTwoWritersCanWinIsRefused) {
  Shared shared;
  shared.isRacy = true;
  EXPECT_THAT(refusalOf(shared), HasSubstr("two computers can make the same thing"));
  EXPECT_TRUE(shared.objects.empty());
}

TEST(PlaceProbeTest, UnfitPlacesAreRefusedAndLeftAsTheyWere) {
  const std::pair<bool Shared::*, const char*> cases[] = {
      {&Shared::replaces, "it replaces what is there"},
      {&Shared::keepsTheLast, "two computers can make the same thing"},
      {&Shared::tellsNobody, "which of several computers was first"},
      {&Shared::forgetsInListing, "its listing lacks what was written"},
      {&Shared::isRefusing, "refused"},
  };
  for (const auto& [fault, cause] : cases) {
    SCOPED_TRACE(cause);
    Shared shared;
    shared.*fault = true;
    EXPECT_THAT(refusalOf(shared), HasSubstr(cause));
    EXPECT_TRUE(shared.objects.empty());
  }
}

TEST(PlaceProbeTest, APlaceThatRemovesNothingIsRefused) {
  Shared shared;
  shared.removesNothing = true;
  EXPECT_THAT(refusalOf(shared), HasSubstr("what was removed there is still there"));
}

TEST(PlaceProbeTest, APlaceThatTakesNothingLargeIsRefused) {
  Shared shared;
  shared.longest = 1 << 20;
  EXPECT_THAT(refusalOf(shared), HasSubstr("413"));
}

TEST(PlaceProbeTest, APlaceWithoutTagsIsTakenWithACaveat) {
  Shared shared;
  shared.hasTags = false;
  const PlaceFindings findings = probePlace([&] { return std::make_unique<FaultyPlace>(shared); });
  EXPECT_EQ(findings.caveats.size(), 1U);
}

}  // namespace
}  // namespace corvane::pelto

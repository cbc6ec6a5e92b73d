#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "CorvaneSyncClient/platform/pelto/place/DirectoryPlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceLeftovers.h"
#include "tests/fakes/TemporaryDirectory.h"

// What only a directory has: files of others, leftovers, a disk that is full or not there.

namespace corvane::pelto {
namespace {

using testing::HasSubstr;

class DirectoryPlaceTest : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return directory.path() + "/" + name; }

  void plant(const std::string& name, const std::string& contents, double age = 0) const {
    std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
    std::ofstream(path(name)) << contents;
    const timespec when{::time(nullptr) - static_cast<time_t>(age), 0};
    const timespec times[] = {when, when};
    ASSERT_EQ(::utimensat(AT_FDCWD, path(name).c_str(), times, 0), 0);
  }

  template <typename Exception = PlaceException, typename Call>
  static std::string refusalOf(const Call& call) {
    try {
      call();
    } catch (const Exception& exception) {
      return exception.reason();
    }
    return "(none)";
  }

  TemporaryDirectory directory;
  DirectoryPlace place{directory.path(), after(60)};
};

TEST_F(DirectoryPlaceTest, NothingIsLeftBesideTheObjects) {
  place.putNew("f/c/1", "1");
  place.putNew("f/c/1", "2");
  place.put({{"f/c/2", "2"}, {"f/c/2", "2"}});
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path("f/c")))
    names.push_back(entry.path().filename());
  EXPECT_THAT(names, testing::UnorderedElementsAre("1", "2"));
}

TEST_F(DirectoryPlaceTest, LeftoversGoADayLaterByTheDisksClock) {
  const double hour = 3600;
  const std::string young = newTemporaryName(), old = newTemporaryName(), future = newTemporaryName();
  plant("f/" + young, "half", 23 * hour);
  plant("f/" + old, "half", 25 * hour);
  plant("f/" + future, "half", -400 * 24 * hour);
  plant("f/tmp.notes", "somebody's own", 99 * hour);
  plant("f/1", "an object", 99 * hour);
  EXPECT_EQ(place.list("f").size(), 1U);
  EXPECT_TRUE(std::filesystem::exists(path("f/" + young)));
  EXPECT_FALSE(std::filesystem::exists(path("f/" + old)));
  EXPECT_TRUE(std::filesystem::exists(path("f/" + future)));
  EXPECT_TRUE(std::filesystem::exists(path("f/tmp.notes")));
  EXPECT_EQ(place.get({{"f/1", Writing::alone, {}, 100}}).front().bytes, "an object");
}

TEST_F(DirectoryPlaceTest, WhatStandsThereByOtherNamesIsPassedOver) {
  place.putNew("f/1", "1");
  for (const char* name : {"f/1.bak", "f/A", "f/\xff\xfe", "f/a b", "f/.hidden", "f/a\nb", "f/%2e"})
    plant(name, "x");
  plant("f/" + std::string(101, 'a'), "x");
  std::filesystem::create_directory(path("f/folder"));
  std::filesystem::create_symlink("/etc/passwd", path("f/link"));
  ASSERT_EQ(::mkfifo(path("f/pipe").c_str(), 0600), 0);
  const std::vector<PlaceObject> objects = place.list("f");
  ASSERT_EQ(objects.size(), 1U);
  EXPECT_EQ(objects.front().name, "f/1");
}

TEST_F(DirectoryPlaceTest, WhatWasChangedInItsPlaceIsReadAnew) {
  const auto write = [this](const char* contents, long nanoseconds) {
    std::ofstream(path("f/1")) << contents;
    const timespec times[] = {{1'800'000'000, nanoseconds}, {1'800'000'000, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path("f/1").c_str(), times, 0), 0);
  };
  place.putNew("f/1", "one");
  write("one", 1);
  const GetAnswer before = place.get({{"f/1", Writing::contested, {}, 10}}).front();
  write("two", 2);
  EXPECT_EQ(place.get({{"f/1", Writing::contested, before.tag, 10}}).front().bytes, "two");
}

TEST_F(DirectoryPlaceTest, WhatIsNoFileIsNotRead) {
  place.putNew("f/1", "1");
  std::filesystem::create_directory(path("f/folder"));
  std::filesystem::create_symlink("/etc/passwd", path("f/link"));
  ASSERT_EQ(::mkfifo(path("f/pipe").c_str(), 0600), 0);
  for (const char* name : {"f/folder", "f/link", "f/pipe"}) {
    SCOPED_TRACE(name);
    EXPECT_THROW(place.get({{name, Writing::alone, {}, 1 << 20}}), PlaceException);
    EXPECT_EQ(place.putNew(name, "x"), Made::present);
  }
}

TEST_F(DirectoryPlaceTest, AMissingDirectoryIsNotMade) {
  DirectoryPlace missing(path("not-mounted"), after(60));
  EXPECT_THAT(refusalOf([&] { missing.putNew("f/1", "1"); }), HasSubstr("mount"));
  EXPECT_THROW(missing.put({{"f/1", "1"}}), PlaceException);
  EXPECT_THROW(missing.list("f"), PlaceException);
  EXPECT_THROW(missing.get({{"f/1", Writing::alone, {}, 10}}), PlaceException);
  EXPECT_FALSE(std::filesystem::exists(path("not-mounted")));
}

TEST_F(DirectoryPlaceTest, AFileThatIsTooLongForTheDiskIsNoRoom) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit narrow{1000, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &narrow);
  EXPECT_THROW(place.putNew("f/1", std::string(2000, 'x')), PlaceFullException);
  EXPECT_THROW(place.put({{"f/2", std::string(2000, 'x')}}), PlaceFullException);
  ::setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_TRUE(place.list("f").empty());
  EXPECT_TRUE(std::filesystem::is_empty(path("f")));
}

TEST_F(DirectoryPlaceTest, ErrorsNameWhatWasTriedAndWhere) {
  plant("f", "a file where a folder should be");
  const std::string refusal = refusalOf([&] { place.putNew("f/1", "1"); });
  EXPECT_THAT(refusal, HasSubstr("Can't make f/1 in the directory " + directory.path()));
  EXPECT_THAT(refusal, HasSubstr("Not a directory"));
}

}  // namespace
}  // namespace corvane::pelto

#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "tests/fakes/StrictPlatform.h"

namespace corvane::pelto {

/// Computers with one account at a directory, one of which is in use at a time.
class ComputersAtPlace : public testing::Test {
 protected:
  static constexpr const char* kAccount = "A1C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A01";
  static constexpr double kDay = 86'400;

  /// Each of them has exchanged. The first one is in use.
  explicit ComputersAtPlace(const std::vector<std::string>& names) {
    platform.uuids.inForm = true;
    std::filesystem::create_directory(place);
    const auto key = std::make_shared<AccountKey>(AccountKey::random());
    for (const std::string& name : names) {
      use(name);
      Membership membership{
          {},   kAccount,        1, key, std::make_shared<ComputerKeys>(ComputerKeys::random()),
          name, {kHubDataClass}, {}};
      writeAccount(userAccountPath(), {place, platform.uuids.newUuid(), {}, std::move(membership)});
      exchange();
    }
    use(names.front());
    folder = Sealer(*key, kAccount, 1).folder();
  }

  void use(const std::string& name) {
    platform.process.home = platform.directory / name;
    std::filesystem::create_directory(platform.process.home);
  }
  RemoteChanges exchange(const std::vector<HubState>& seen = {}) {
    return makePlaceHub(*userAccount(), 60)->remoteChanges(seen);
  }
  HubState give(const std::string& name) {
    const auto hub = makePlaceHub(*userAccount(), 60);
    HubRecord record;
    record.id = platform.uuids.newUuid();
    record.name = name;
    const HubPushed pushed = hub->push({hub->remoteChanges({}).now, platform.uuids.newUuid(), {record}});
    EXPECT_TRUE(pushed);
    return pushed.now;
  }
  /// The first one takes the third one out.
  void takeOut() {
    use("third");
    const String third = userAccount()->computer;
    use("first");
    changeAccountKey(*userAccount(), third, 60);
  }
  /// The folder of the account's generation that the computer in use has the key of.
  static std::string folderNow() {
    const Membership membership = userAccount()->membership;
    return Sealer(*membership.key, membership.account, membership.generation).folder();
  }

  /// All that lies in the folder at the place.
  std::vector<std::string> objects(const std::string& name) const {
    std::vector<std::string> found;
    if (!std::filesystem::exists(place + '/' + name)) return found;
    for (const auto& each : std::filesystem::recursive_directory_iterator(place + '/' + name)) {
      if (each.is_regular_file()) found.push_back(each.path());
    }
    return found;
  }
  void age(const std::string& name, double days) const {
    for (const std::string& each : objects(name)) {
      struct stat status {};
      ASSERT_EQ(::stat(each.c_str(), &status), 0);
      timespec times[2] = {status.st_atim, status.st_mtim};
      times[1].tv_sec -= static_cast<time_t>(days * kDay);
      ASSERT_EQ(::utimensat(AT_FDCWD, each.c_str(), times, 0), 0);
    }
  }
  /// A computer looks after what is left when it renews its card.
  void exchangeAWeekLater() {
    platform.clock.time.seconds += 8 * kDay;
    exchange();
  }
  static LeftGenerations left() { return userAccount()->membership.left; }

  StrictPlatform platform;
  const std::string place = platform.directory / "place";
  std::string folder;  ///< of the first generation at the place
};

}  // namespace corvane::pelto

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/PostgresHub.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/PostgresServer.h"

namespace corvane::pelto {

HubRecord bookmark(const String& name, const String& url, const String& parent = {});
HubRecord folder(const String& name, const String& parent = {});
HubRecord tombstone(const HubRecord& record);

/// One line for each record, sorted, so that equal texts mean equal records. Long texts are shown as their
/// length and a hash.
std::string text(std::vector<HubRecord> records);

/// The reason of the DotPeltoException that `work` raises; empty when it raises none.
template <typename Work>
std::string failureOf(Work work) {
  try {
    work();
    return {};
  } catch (const PlatformException& exception) {
    EXPECT_STREQ(exception.name().c_str(), DotPeltoException);
    return exception.reason();
  }
}

/// A new account at the test program's server, and one computer for which it is switched on.
class HubTest : public testing::Test {
 protected:
  HubTest() { hub.setEnabled(kHubDataClass, true); }

  /// Makes the account's next revision of `records`; returns the id of the push.
  String give(Hub& to, std::vector<HubRecord> records);
  String give(std::vector<HubRecord> records) { return give(hub, std::move(records)); }
  /// All live records of the account, as text.
  std::string held() { return text(PostgresHub(url, computer).remoteChanges({}).records); }
  /// The number that `sql` returns; `$` in it stands for the account's number.
  std::int64_t number(std::string sql);
  void administer(std::string sql);

  StrictPlatform platform;
  PostgresServer& server = postgresServer();
  const std::string url = server.addAccount();
  const std::string user = url.substr(13, url.find(':', 13) - 13);
  const String computer = "C0000000-0000-4000-8000-000000000001";
  PostgresHub hub{url, computer};

 private:
  std::string forAccount(std::string sql);
};

}  // namespace corvane::pelto

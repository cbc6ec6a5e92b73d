#include <algorithm>
#include <chrono>
#include <fstream>
#include <regex>
#include <thread>
#include <vector>

#include "tests/corvane-hub/HubServerTest.h"

namespace corvane {

namespace {

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

/// Finds the patterns one after another; answers the first that does not come in its turn, or nothing.
std::string missingInOrder(const std::vector<std::string>& lines, const std::vector<std::string>& patterns) {
  std::size_t next = 0;
  for (const std::string& line : lines) {
    if (next < patterns.size() && std::regex_search(line, std::regex(patterns[next]))) ++next;
  }
  return next == patterns.size() ? std::string() : patterns[next];
}

class HubDurability : public testing::Test {
 protected:
  /// Kills the server that is traced and answers the lines of its trace.
  std::vector<std::string> finishedTrace(HubProcess& hub) const {
    // strace tells of the end of a process after those of its threads.
    const std::string process = std::to_string(hub.process()) + ' ';
    hub.kill();
    while (true) {
      std::vector<std::string> lines = linesOf(directory / "trace");
      if (std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.starts_with(process) && line.ends_with("+++ killed by SIGKILL +++");
          })) {
        return lines;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  std::vector<std::string> tracing() const {
    return straceWith({"-y", "-o", directory / "trace", "-e", "trace=write,fsync,linkat,sendto"});
  }

  TemporaryDirectory directory;
  std::string token = accountCommand(directory.path(), {"add", "ada", "laptop"});
};

TEST_F(HubDurability, AnObjectAndItsNameAreOnTheDiskBeforeTheAnswer) {
  HubProcess hub(directory.path(), {}, tracing());
  ASSERT_EQ(HubClient(hub.port(), token).putNew("/v1/o/f/c/1", "contents").status, 201);
  const std::vector<std::string> lines = finishedTrace(hub);
  EXPECT_EQ(
      missingInOrder(lines, {R"(write\(.*"contents")", R"(fsync\(\d+<.*/objects/#?\d+.*\) += 0)",
                             R"(linkat\(.*/objects/f\.c/1".* = 0)", R"(fsync\(\d+<.*/objects/f\.c>\) += 0)",
                             R"(fsync\(\d+<.*/objects>\) += 0)", R"(sendto\(.*"HTTP/1\.1 201)"}),
      "");
}

TEST_F(HubDurability, WhatAKilledServerMadeIsOnTheDiskBeforeTheNextOneListens) {
  HubProcess hub(directory.path(), {},
                 straceWith({"-y", "-o", directory / "trace", "-e", "trace=syncfs,listen"}));
  EXPECT_EQ(missingInOrder(finishedTrace(hub), {R"(syncfs\(\d+<.*/data>\) += 0)", R"(listen\(.* = 0)"}), "");
}

TEST_F(HubDurability, AServerIsKeptOutOfCoreDumpsBeforeItReadsAnythingOfItsOwn) {
  HubProcess hub(directory.path(), {},
                 straceWith({"-o", directory / "trace", "-e", "trace=prctl,openat,clone,clone3"}));
  std::vector<std::string> lines = finishedTrace(hub);
  EXPECT_EQ(
      missingInOrder(lines, {R"(prctl\(PR_SET_DUMPABLE, SUID_DUMP_DISABLE\) += 0)", R"(openat\(.*/conf-)"}),
      "");
  std::erase_if(lines, [](const std::string& line) { return line.find("PR_SET_DUMPABLE") == line.npos; });
  EXPECT_EQ(lines.size(), 1U) << "and stays so";
}

struct Refused {
  const char* phrase;
  const char* headers;
  int status;
};

void PrintTo(const Refused& row, std::ostream* out) { *out << row.phrase; }

class HubDurabilityOfOthers : public HubDurability, public testing::WithParamInterface<Refused> {};

/// Another server may have made it just now, or one that was killed before it was on the disk.
TEST_P(HubDurabilityOfOthers, AnObjectThatWasThereIsOnTheDiskBeforeTheAnswerThatSaysSo) {
  {
    const HubProcess maker(directory.path());
    ASSERT_EQ(HubClient(maker.port(), token).putNew("/v1/o/f/c/1", "contents").status, 201);
  }
  HubProcess hub(directory.path(), {}, tracing());
  ASSERT_EQ(HubClient(hub.port(), token).put("/v1/o/f/c/1", "contents", GetParam().headers).status,
            GetParam().status);
  EXPECT_EQ(missingInOrder(finishedTrace(hub),
                           {R"(fsync\(\d+<.*/objects/f\.c>\) += 0)", R"(fsync\(\d+<.*/objects>\) += 0)",
                            R"(sendto\(.*"HTTP/1\.1 )" + std::to_string(GetParam().status)}),
            "");
}

INSTANTIATE_TEST_SUITE_P(All, HubDurabilityOfOthers,
                         testing::Values(Refused{"WithTheSameBytes", "", 204},
                                         Refused{"WhenItHadToBeNew", "If-None-Match: *\r\n", 412}),
                         [](const auto& row) { return std::string(row.param.phrase); });

struct DiskFault {
  const char* phrase;
  const char* injection;
  int status;
  bool leavesObject;  ///< it is seen although nobody was told that it was made
};

void PrintTo(const DiskFault& row, std::ostream* out) { *out << row.phrase; }

class HubDiskFaults : public HubDurability, public testing::WithParamInterface<DiskFault> {};

TEST_P(HubDiskFaults, AreNeverAnsweredAsSuccess) {
  HubProcess hub(directory.path(), {},
                 straceWith({"-o", "/dev/null", "-e", std::string("inject=") + GetParam().injection}));
  EXPECT_EQ(HubClient(hub.port(), token).putNew("/v1/o/f/c/1", std::string(5000, 'x')).status,
            GetParam().status);
  const HttpAnswer answer = HubClient(hub.port(), token).get("/v1/o/f/c/1");
  EXPECT_EQ(answer.status, GetParam().leavesObject ? 200 : 404);
  EXPECT_EQ(answer.body.size(), GetParam().leavesObject ? 5000u : answer.body.size());
}

INSTANTIATE_TEST_SUITE_P(
    All, HubDiskFaults,
    testing::Values(DiskFault{"ObjectDoesNotReachTheDisk", "fsync:error=EIO:when=1", 500, false},
                    DiskFault{"FolderDoesNotReachTheDisk", "fsync:error=EIO:when=2", 500, true},
                    DiskFault{"FullWhenTheBytesReachTheDisk", "fsync:error=ENOSPC:when=1", 507, false},
                    DiskFault{"FullWhenTheFolderIsMade", "mkdir:error=ENOSPC:when=1", 507, false},
                    DiskFault{"FullWhenTheNameIsMade", "linkat:error=EDQUOT:when=1", 507, false},
                    DiskFault{"NoNameCanBeMade", "linkat:error=EACCES:when=1", 500, false},
                    DiskFault{"NoDateCanBeGiven", "utimensat:error=EPERM:when=1", 500, false}),
    [](const auto& row) { return std::string(row.param.phrase); });

TEST_F(HubDurability, WhoCannotWaitForLackOfWatchesIsToldSo) {
  const HubProcess hub(
      directory.path(), {},
      straceWith({"-o", "/dev/null", "-e", "inject=inotify_add_watch:error=ENOSPC:when=2+"}));
  HubClient client(hub.port(), token);
  const HttpAnswer answer = client.get("/v1/o/f/c/1?wait=60");
  EXPECT_EQ(answer.status, 503);
  EXPECT_EQ(answer.header("retry-after"), "60");
  EXPECT_EQ(client.put("/v1/o/f/c/1", "x").status, 201);
}

TEST_F(HubDurability, AServerWithoutDescriptorsTakesClientsInLater) {
  const HubProcess hub(directory.path(), {},
                       straceWith({"-o", "/dev/null", "-e", "inject=accept4:error=EMFILE:when=1..2"}));
  EXPECT_EQ(HubClient(hub.port(), token).put("/v1/o/f/c/1", "x").status, 201);
}

}  // namespace

}  // namespace corvane

#include <gtest/gtest.h>

#include "tests/fakes/ChildProcess.h"
#include "tools/loomerctl/UnitNames.h"

namespace corvane::loomerctl {
namespace {

std::string everyByte() {
  std::string bytes;
  for (int byte = 1; byte < 128; ++byte) bytes += static_cast<char>(byte);
  return bytes.substr(0, 60);
}

const std::string kFiles[] = {
    "Bookmarks.plist", "My own.plist", ".hidden",         "a.b",       "deep/file-with-dashes.plist",
    "Büro ☃",          "back\\slash",  "100%: \"$HOME\"", everyByte(), "\\x2d",
};

TEST(UnitNames, AreThoseThatSystemdMakes) {
  for (const std::string& file : kFiles) {
    const ProgramResult escaped =
        corvane::runProgram({"systemd-escape", "--template=corvane-sync@.path", "--", file});
    EXPECT_EQ(escaped.status, 0) << escaped.output;
    EXPECT_EQ(pathUnitFor(file).value_or("none") + '\n', escaped.output);
  }
}

TEST(UnitNames, TellTheFile) {
  for (const std::string& file : kFiles) EXPECT_EQ(fileOfPathUnit(pathUnitFor(file).value_or("")), file);
}

TEST(UnitNames, OfOtherUnitsTellNone) {
  for (const char* unit :
       {"corvane-sync.timer", "corvane-sync@.path", "other@a.path", "corvane-sync@a.service",
        "corvane-sync@\\x2.path", "corvane-sync@\\y20.path", "corvane-sync@\\xzz.path"})
    EXPECT_FALSE(fileOfPathUnit(unit)) << unit;
}

TEST(UnitNames, HaveAnEnd) {
  EXPECT_TRUE(pathUnitFor(std::string(237, 'a')));
  EXPECT_FALSE(pathUnitFor(std::string(238, 'a')));
  EXPECT_FALSE(pathUnitFor(""));
}

}  // namespace
}  // namespace corvane::loomerctl

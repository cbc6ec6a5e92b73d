#include <gmock/gmock.h>

#include <sstream>
#include <vector>

#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/QrCode.h"

namespace corvane {
namespace {

// The modules that are dark, as lines of "#" and ".", margin included.
std::vector<std::string> modulesOf(const std::string& code) {
  std::vector<std::string> rows;
  std::istringstream lines(code);
  for (std::string line; std::getline(lines, line);) {
    std::string upper, lower;
    for (std::size_t at = 0; at < line.size();) {
      const bool isBlank = line[at] == ' ';
      const std::string block = isBlank ? " " : line.substr(at, 3);
      upper += block == "█" || block == "▀" ? '.' : '#';
      lower += block == "█" || block == "▄" ? '.' : '#';
      at += block.size();
    }
    rows.push_back(upper);
    rows.push_back(lower);
  }
  return rows;
}

TEST(QrCode, HasItsFinderPatternsInsideALightMargin) {
  const auto rows = modulesOf(loomerctl::qrCode("CORVANE-AEAFUS2LJNFUWS2P"));
  const std::size_t width = rows[0].size();
  ASSERT_GE(rows.size(), width);
  EXPECT_EQ((width - 8) % 4, 1u) << "17 + 4 times the version";
  const char* const finder[] = {"#######", "#.....#", "#.###.#", "#.###.#", "#.###.#", "#.....#", "#######"};
  for (std::size_t row = 0; row < 7; ++row) {
    EXPECT_EQ(rows[4 + row].substr(0, 4), "....");
    EXPECT_EQ(rows[4 + row].substr(4, 7), finder[row]);
    EXPECT_EQ(rows[4 + row].substr(width - 11, 7), finder[row]);
    EXPECT_EQ(rows[width - 11 + row].substr(4, 7), finder[row]);
  }
  for (std::size_t row = 0; row < 4; ++row) EXPECT_EQ(rows[row], std::string(width, '.'));
}

TEST(QrCode, TextThatIsTooLongIsRefused) {
  EXPECT_THROW(loomerctl::qrCode(std::string(5000, 'A')), loomerctl::Refused);
}

}  // namespace
}  // namespace corvane

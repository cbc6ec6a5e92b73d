#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// Puts binary property lists together byte by byte, also wrong ones. Each object is given as its encoded
/// bytes.
struct BinaryPlistBuilder {
  std::vector<std::string> objects;
  unsigned offsetSize = 4;
  unsigned referenceSize = 1;
  unsigned long long top = 0;

  static std::string number(unsigned long long value, unsigned size) {
    std::string bytes(size, '\0');
    for (unsigned i = size; i-- > 0; value >>= 8) bytes[i] = static_cast<char>(value);
    return bytes;
  }

  std::string bytes() const {
    std::string text = "bplist00";
    std::string table;
    for (const std::string& object : objects) {
      table += number(text.size(), offsetSize);
      text += object;
    }
    return text + table + trailer(objects.size(), text.size());
  }

  std::string trailer(unsigned long long count, unsigned long long tableOffset) const {
    return std::string(6, '\0') + number(offsetSize, 1) + number(referenceSize, 1) + number(count, 8) +
           number(top, 8) + number(tableOffset, 8);
  }
};

/// The bytes that hexadecimal digits stand for.
inline std::string hexBytes(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16));
  }
  return bytes;
}

}  // namespace corvane

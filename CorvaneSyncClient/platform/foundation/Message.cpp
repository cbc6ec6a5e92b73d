#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane {

std::string filled(std::string_view text, const std::vector<std::string>& values) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const std::size_t number = placeholderAt(text, at);
    if (number == 0 || number > values.size()) {
      result += text[at];
      continue;
    }
    result += values[number - 1];
    ++at;
  }
  return result;
}

std::string inGroups(std::uint64_t number, std::string_view separator) {
  std::string digits = std::to_string(number);
  for (std::size_t at = digits.size(); at > 3;) digits.insert(at -= 3, separator);
  return digits;
}

std::string Message::inEnglish() const {
  if (kind == Kind::same) return english;
  std::vector<std::string> words;
  if (kind != Kind::text) words.push_back(inGroups(number, ","));
  if (kind == Kind::number) return words.front();
  for (const Message& value : values) words.push_back(value.inEnglish());
  return filled(kind == Kind::counted && number == 1 ? singular : english, words);
}

Message sentences(Message first, Message second) {
  if (first.empty()) return second;
  return second.empty() ? first : Message("%1 %2", first, second);
}

}  // namespace corvane

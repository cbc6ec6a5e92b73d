#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane {

/// The number of a placeholder "%1" to "%9" at `at`; 0 where none stands there.
constexpr std::size_t placeholderAt(std::string_view text, std::size_t at) {
  const bool stands = text[at] == '%' && at + 1 < text.size() && text[at + 1] >= '1' && text[at + 1] <= '9';
  return stands ? static_cast<std::size_t>(text[at + 1] - '0') : 0;
}

/// The text with the values in place of "%1", "%2" and so on.
std::string filled(std::string_view text, const std::vector<std::string>& values);

/// "1,234,567", the separator being a comma.
std::string inGroups(std::uint64_t number, std::string_view separator);

/// An English text in which exactly "%1" to "%N" stand, N being `arguments`; others do not compile. Written
/// as MessageText<N>("…"), or TextKey("…") for none, where it is shown later.
template <std::size_t arguments>
class MessageText {
 public:
  template <std::size_t size>
  consteval MessageText(const char (&english)[size]) : _english(english) {
    unsigned found = 0;
    for (std::size_t at = 0; at + 1 < size; ++at) {
      const std::size_t number = placeholderAt({english, size - 1}, at);
      if (number > 0) found |= 1U << (number - 1);
    }
    if (found != (1U << arguments) - 1) throw "the placeholders are not those of the arguments";
  }
  constexpr const char* english() const { return _english; }

 private:
  const char* _english;
};

using TextKey = MessageText<0>;

/// A text for people that is not yet in words: what an exception gives as its reason, since who throws it
/// knows no language, and what is kept of it may be read in another one. The English text is its key in the
/// tables of the other languages; `tr` in platform/system/Messages.h says it in the user's.
struct Message {
  enum class Kind {
    same,    ///< the text is the same in every language, such as a path
    number,  ///< is grouped as the language has it
    text,
    counted  ///< has a plural form that the number decides on, which stands at "%1"
  };

  /// Nothing.
  Message() = default;
  /// What is the same in every language.
  template <std::same_as<std::string> Text>
  Message(Text text) : english(std::move(text)) {}
  /// A text without placeholders. One that a table holds is written as Message("…") all the same, so that
  /// tests/check_messages.py finds it.
  template <std::size_t size>
  Message(const char (&text)[size]) : kind(Kind::text), english(text) {}
  /// A text with its values: texts that are the same in every language, numbers to be grouped, messages.
  template <typename... Values>
  Message(MessageText<sizeof...(Values)> text, const Values&... with)
      : kind(Kind::text), english(text.english()), values{valueOf(with)...} {}
  /// As `counted` in platform/system/Messages.h.
  template <typename... Values>
  static Message counted(std::uint64_t count, MessageText<1 + sizeof...(Values)> one,
                         MessageText<1 + sizeof...(Values)> other, const Values&... with) {
    Message message(count, Kind::counted);
    message.english = other.english();
    message.singular = one.english();
    message.values = {valueOf(with)...};
    return message;
  }

  bool empty() const { return kind != Kind::number && english.empty(); }
  /// In words, for logs and for programs.
  std::string inEnglish() const;

  Kind kind = Kind::same;
  std::string english;   ///< the whole text, or with placeholders: the key
  std::string singular;  ///< counted: the text for one
  std::uint64_t number = 0;
  std::vector<Message> values;  ///< for "%1" and so on; counted: from "%2" on

 private:
  Message(std::uint64_t count, Kind what) : kind(what), number(count) {}

  static Message valueOf(std::string_view text) { return std::string(text); }
  template <std::same_as<Message> Given>
  static Message valueOf(const Given& message) {
    return message;
  }
  template <std::unsigned_integral Number>
  static Message valueOf(Number number) {
    return {number, Kind::number};
  }
};

/// One sentence after the other.
Message sentences(Message first, Message second);

}  // namespace corvane

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane {

// Texts for people, in their language. The English text is the key under which the tables
// "resources/LANG.lproj/Messages.strings" hold the others:
//
//   tr("The client %1 is unknown.", name)                    "The client %1 is unknown." = "…%1…";
//   counted(count, "%1 bookmark", "%1 bookmarks")            "%1 bookmarks" = { one = "…%1…"; other = "…%1…";
//   };
//
// A text is a whole sentence, a heading or another piece that can be translated without the next one; only
// counted pieces are put into others: tr("%1 and %2", counted(…), counted(…)). It has no line ends. What
// programs read, and the logs, stay in English and are no business of this file.
//
// What goes through a log, or is kept, before somebody reads it is a Message("…", …), which `tr` puts into
// words when it is shown: all that is raised by what sessions rest on.

/// The language of the texts, as a tag of BCP 47: "de", "en" where no table is found.
std::string languageOfTexts();

/// "1,234,567", as the user's language has it.
std::string grouped(std::uint64_t number);

/// "1.5", as the user's language has it.
std::string withOneDecimal(double number);

/// What `tr` and `counted` rest on.
std::string translated(const char* english, const std::vector<std::string>& values);
std::string translatedCount(std::uint64_t count, const char* one, const char* other,
                            const std::vector<std::string>& values);
std::string inWords(const Message& message);

/// A placeholder's value as it is shown: text as it is, numbers grouped, messages in words. What is a
/// number's name, such as that of a session, is given as text.
inline std::string placeholderValue(std::string_view text) { return std::string(text); }
template <std::same_as<Message> Given>
std::string placeholderValue(const Given& message) {
  return inWords(message);
}
template <std::unsigned_integral Number>
std::string placeholderValue(Number number) {
  return grouped(number);
}

/// While it lives, texts are English: for what programs read, and for logs.
class EnglishScope {
 public:
  EnglishScope();
  ~EnglishScope();
  EnglishScope(const EnglishScope&) = delete;
  EnglishScope& operator=(const EnglishScope&) = delete;

 private:
  bool _before;
};

/// The text in the user's language, in English where no table has it, with the values in place of "%1", "%2"
/// and so on.
template <typename... Values>
std::string tr(MessageText<sizeof...(Values)> english, const Values&... values) {
  return translated(english.english(), {placeholderValue(values)...});
}

/// The same in the plural form that belongs to `count`, which stands at "%1"; the values follow from "%2" on.
template <typename... Values>
std::string counted(std::uint64_t count, MessageText<1 + sizeof...(Values)> one,
                    MessageText<1 + sizeof...(Values)> other, const Values&... values) {
  return translatedCount(count, one.english(), other.english(),
                         {grouped(count), placeholderValue(values)...});
}

/// The message in the user's language.
template <std::same_as<Message> Text>
std::string tr(const Text& message) {
  return inWords(message);
}

}  // namespace corvane

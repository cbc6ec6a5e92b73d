#include "CorvaneSyncClient/platform/system/Messages.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <utility>

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

namespace {

constexpr const char* kTable = "Messages";

// How a language counts, after Unicode's CLDR. The form "many", which Spanish and French have for whole
// millions, is left out: in figures most people write "1 000 000 signets".
struct Habits {
  std::string_view language;
  const char* thousands;      // between groups of three digits
  const char* decimal;        // in front of tenths
  std::uint64_t groupedFrom;  // smaller numbers stand without groups
  const char* none;           // the plural form for 0
  const char* one;            // for 1
};

constexpr const char* kOne = "one";
constexpr const char* kOther = "other";

constexpr Habits kHabits[] = {
    {"en", ",", ".", 1'000, kOther, kOne},   {"de", ".", ",", 1'000, kOther, kOne},
    {"es", ".", ",", 10'000, kOther, kOne},  {"fr", "\u202F", ",", 1'000, kOne, kOne},
    {"ja", ",", ".", 1'000, kOther, kOther},
};

bool isEnglishWanted = false;

// Null for English, which is also spoken where there are no services: a reader of files needs none else.
// Leaves errno as it is, for a failure may be put into words before its cause is asked for.
const StringsTable* messagesTable() {
  Platform* const platform = currentService<Platform>;
  if (!platform || isEnglishWanted) return nullptr;
  const int cause = errno;
  const StringsTable* const table = platform->bundles.ownBundle().translations(kTable);
  errno = cause;
  return table;
}

const Habits& habitsOf(const StringsTable* table) {
  const std::string_view whole = table ? std::string_view(table->language) : kHabits[0].language;
  const std::string_view language = whole.substr(0, whole.find_first_of("_-"));
  for (const Habits& each : kHabits) {
    if (each.language == language) return each;
  }
  return kHabits[0];
}

const char* formFor(std::uint64_t count, const Habits& habits) {
  if (count == 0) return habits.none;
  return count == 1 ? habits.one : kOther;
}

}  // namespace

EnglishScope::EnglishScope() : _before(std::exchange(isEnglishWanted, true)) {}
EnglishScope::~EnglishScope() { isEnglishWanted = _before; }

std::string languageOfTexts() {
  const StringsTable* const table = messagesTable();
  std::string language = table ? table->language : std::string(kHabits[0].language);
  std::replace(language.begin(), language.end(), '_', '-');
  return language;
}

std::string grouped(std::uint64_t number) {
  const Habits& habits = habitsOf(messagesTable());
  return number < habits.groupedFrom ? std::to_string(number) : inGroups(number, habits.thousands);
}

std::string withOneDecimal(double number) {
  const auto tenths = static_cast<std::uint64_t>(std::llround(number * 10));
  return grouped(tenths / 10) + habitsOf(messagesTable()).decimal + std::to_string(tenths % 10);
}

std::string translated(const char* english, const std::vector<std::string>& values) {
  const StringsTable* const table = messagesTable();
  const String text = table ? table->texts.string(english) : String();
  return filled(text ? text.view() : english, values);
}

std::string inWords(const Message& message) {
  std::vector<std::string> words;
  for (const Message& value : message.values) words.push_back(inWords(value));
  switch (message.kind) {
    case Message::Kind::same:
      return message.english;
    case Message::Kind::number:
      return grouped(message.number);
    case Message::Kind::text:
      return translated(message.english.c_str(), words);
    case Message::Kind::counted:
      break;
  }
  words.insert(words.begin(), grouped(message.number));
  return translatedCount(message.number, message.singular.c_str(), message.english.c_str(), words);
}

std::string translatedCount(std::uint64_t count, const char* one, const char* other,
                            const std::vector<std::string>& values) {
  const StringsTable* const table = messagesTable();
  const Dictionary* const forms = table ? table->texts.dictionary(other) : nullptr;
  const String text = forms ? forms->string(formFor(count, habitsOf(table))) : String();
  return filled(text ? text.view() : count == 1 ? one : other, values);
}

}  // namespace corvane

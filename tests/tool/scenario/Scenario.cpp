#include "tests/tool/scenario/Scenario.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "tests/tool/scenario/RecordNames.h"

namespace corvane::scenario {

namespace {

// A dictionary of a scenario, and where in the scenario it stands. Every key that is asked for counts as
// known.
class Section {
 public:
  Section(const Value& value, std::string place) : _place(std::move(place)) {
    const Dictionary* dictionary = value.as<Dictionary>();
    if (!dictionary)
      throw MalformedScenario(_place + ": a dictionary is wanted, not a value of type " + value.typeName());
    _dictionary = *dictionary;
  }

  std::string place(std::string_view key) const {
    return _place.empty() ? std::string(key) : _place + "." + std::string(key);
  }

  template <typename T>
  std::optional<T> optional(const char* key, const char* type) {
    _known.push_back(key);
    const Value* value = _dictionary.find(key);
    if (!value) return std::nullopt;
    const T* typed = value->as<T>();
    if (!typed)
      throw MalformedScenario(place(key) + ": " + type + " is wanted, not a value of type " +
                              value->typeName());
    return *typed;
  }

  template <typename T>
  T required(const char* key, const char* type) {
    const std::optional<T> value = optional<T>(key, type);
    if (!value) throw MalformedScenario(place(key) + ": " + type + " is missing");
    return *value;
  }

  String requiredString(const char* key) { return required<String>(key, "a string"); }

  void refuseOtherKeys() const {
    for (const auto& entry : _dictionary) {
      const auto isThisKey = [&entry](const char* key) { return entry.key == key; };
      if (std::none_of(_known.begin(), _known.end(), isThisKey)) {
        throw MalformedScenario(place(entry.key.view()) + ": there is no such key here");
      }
    }
  }

 private:
  std::string _place;
  Dictionary _dictionary;
  std::vector<const char*> _known;
};

struct CallForm {
  const char* name;
  Call call;
  bool hasEntity;
};

constexpr CallForm kCalls[] = {
    {"didRegister", Call::didRegister, false}, {"preferredSyncMode", Call::preferredSyncMode, true},
    {"records", Call::records, true},          {"changedRecords", Call::changedRecords, true},
    {"applyChange", Call::applyChange, true},  {"deleteAllRecords", Call::deleteAllRecords, true},
    {"didPull", Call::didPull, false},         {"willFinish", Call::willFinish, false},
    {"willCancel", Call::willCancel, false},
};

CallForm callNamed(const String& name, const std::string& place) {
  for (const CallForm& form : kCalls) {
    if (name == form.name) return form;
  }
  throw MalformedScenario(place + ": there is no call \"" + name.toString() + "\"");
}

Dictionary readRecord(const Dictionary& record, const std::string& place) {
  for (const auto& entry : record) {
    const std::string entryPlace = place + "." + entry.key.toString();
    if (!isRecordKey(entry.key)) throw MalformedScenario(entryPlace + ": there is no such constant");
    if (!isRecordValue(entry.key, entry.value)) {
      throw MalformedScenario(entryPlace + ": \"Folder\" or \"Bookmark\" is wanted");
    }
  }
  return recordFromScenario(record);
}

void readChange(Section& section, ScenarioStep& step) {
  const auto type = section.required<std::int64_t>("Type", "an integer");
  if (type < std::numeric_limits<int>::min() || type > std::numeric_limits<int>::max()) {
    throw MalformedScenario(section.place("Type") + ": an integer of 32 bits is wanted");
  }
  step.type = static_cast<int>(type);
  step.identifier = section.requiredString("Identifier");
  if (const auto record = section.optional<Dictionary>("Record", "a dictionary")) {
    step.record = readRecord(*record, section.place("Record"));
  }
}

ScenarioStep readStep(const Value& value, const std::string& place) {
  Section section(value, place);
  ScenarioStep step;
  step.name = section.requiredString("Call");
  const CallForm form = callNamed(step.name, section.place("Call"));
  step.call = form.call;
  if (form.hasEntity) step.entity = entityFromWord(section.requiredString("Entity"));
  if (step.call == Call::applyChange) readChange(section, step);
  section.refuseOtherKeys();
  return step;
}

BrowserWrite readBrowserWrite(const Value& value, const std::string& place) {
  Section section(value, place);
  BrowserWrite write;
  write.bookmarks = section.optional<Dictionary>("Bookmarks", "a dictionary");
  write.date = section.optional<Date>("Date", "a date");
  section.refuseOtherKeys();
  return write;
}

String readString(const Value& value, const std::string& place) {
  if (const String* text = value.as<String>()) return *text;
  throw MalformedScenario(place + ": a string is wanted, not a value of type " + value.typeName());
}

template <typename Element>
std::vector<Element> readList(Section& section, const char* key,
                              Element (*readElement)(const Value& value, const std::string& place)) {
  const Array list = section.optional<Array>(key, "an array").value_or(Array());
  std::vector<Element> elements;
  for (std::size_t i = 0; i < list.size(); ++i) {
    elements.push_back(readElement(list[i], section.place(key) + "[" + std::to_string(i) + "]"));
  }
  return elements;
}

Dictionary readPreferences(Section& scenario) {
  const Dictionary preferences =
      scenario.optional<Dictionary>("Preferences", "a dictionary").value_or(Dictionary());
  for (const auto& entry : preferences) {
    if (entry.key == "SCLog" || entry.key == "SaveCorvaneBookmarksBackupFiles") continue;
    throw MalformedScenario(scenario.place("Preferences") + "." + entry.key.toString() +
                            ": there is no such key here");
  }
  return preferences;
}

}  // namespace

Scenario readScenario(const Value& value) {
  Section section(value, "");
  Scenario scenario;
  scenario.clientId = section.optional<String>("ClientId", "a string").value_or("com.keldra.Corvane");
  scenario.bookmarks = section.optional<Dictionary>("Bookmarks", "a dictionary");
  scenario.bookmarksDate = section.optional<Date>("BookmarksDate", "a date").value_or(Date{1000.0});
  scenario.clientValues = section.optional<Dictionary>("ClientValues", "a dictionary").value_or(Dictionary());
  scenario.preferences = readPreferences(section);
  scenario.uuids = readList(section, "UUIDs", &readString);
  scenario.steps = readList(section, "Steps", &readStep);
  scenario.browserWrites = readList(section, "BrowserWrites", &readBrowserWrite);
  scenario.sessionResult = section.optional<bool>("SessionResult", "a boolean").value_or(true);
  scenario.sessionError = section.optional<String>("SessionError", "a string").value_or("scripted");
  section.refuseOtherKeys();
  return scenario;
}

}  // namespace corvane::scenario

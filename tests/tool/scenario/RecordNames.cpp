#include "tests/tool/scenario/RecordNames.h"

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane::scenario {

namespace {

constexpr const char* kUrlKey = "URL";

enum class Owner { both, folder, bookmark };

struct Constant {
  const char* name;
  const String& value;
  Owner owner;
};

#define CORVANE_CONSTANT(name, owner) \
  { #name, name, owner }
const Constant kConstants[] = {
    CORVANE_CONSTANT(LoomerRecordEntityNameKey, Owner::both),
    CORVANE_CONSTANT(LoomerAttribute_Bookmarks_Folder_Name, Owner::folder),
    CORVANE_CONSTANT(LoomerAttribute_Bookmarks_Folder_Position, Owner::folder),
    CORVANE_CONSTANT(LoomerRelationship_Bookmarks_Folder_Parent, Owner::folder),
    CORVANE_CONSTANT(LoomerRelationship_Bookmarks_Folder_Children, Owner::folder),
    CORVANE_CONSTANT(LoomerAttribute_Bookmarks_Bookmark_Name, Owner::bookmark),
    CORVANE_CONSTANT(LoomerAttribute_Bookmarks_Bookmark_Url, Owner::bookmark),
    CORVANE_CONSTANT(LoomerAttribute_Bookmarks_Bookmark_Position, Owner::bookmark),
    CORVANE_CONSTANT(LoomerRelationship_Bookmarks_Bookmark_Parent, Owner::bookmark),
};
#undef CORVANE_CONSTANT

struct Entity {
  const char* word;
  const String& name;
  Owner owner;
};

const Entity kEntities[] = {
    {"Folder", LoomerEntity_Bookmarks_Folder, Owner::folder},
    {"Bookmark", LoomerEntity_Bookmarks_Bookmark, Owner::bookmark},
};

const Constant* constantNamed(const String& name) {
  for (const Constant& constant : kConstants) {
    if (name == constant.name) return &constant;
  }
  return nullptr;
}

// The constant of that string which belongs to `owner`, else any of that string.
const Constant* constantOfValue(const String& value, Owner owner) {
  const Constant* found = nullptr;
  for (const Constant& constant : kConstants) {
    if (!(constant.value == value)) continue;
    if (!found || constant.owner == owner) found = &constant;
  }
  return found;
}

const Entity* entityOfRecord(const Dictionary& record) {
  const String name = record.string(LoomerRecordEntityNameKey.view());
  for (const Entity& entity : kEntities) {
    if (name == entity.name) return &entity;
  }
  return nullptr;
}

Value valueFromScenario(const Value& value) {
  const Dictionary* dictionary = value.as<Dictionary>();
  const String url = dictionary && dictionary->size() == 1 ? dictionary->string(kUrlKey) : String();
  return url ? Value(Url{url}) : value;
}

Value valueForResult(const Value& value) {
  const Url* url = value.as<Url>();
  return url ? Value(Dictionary{{kUrlKey, url->text}}) : value;
}

}  // namespace

String entityFromWord(const String& word) {
  for (const Entity& entity : kEntities) {
    if (word == entity.word) return entity.name;
  }
  return word;
}

bool isRecordKey(const String& key) { return constantNamed(key) || !key.view().starts_with("Loomer"); }

bool isRecordValue(const String& key, const Value& value) {
  const Constant* constant = constantNamed(key);
  if (!constant || !(constant->value == LoomerRecordEntityNameKey)) return true;
  return value.string() == "Folder" || value.string() == "Bookmark";
}

Dictionary recordFromScenario(const Dictionary& record) {
  Dictionary result;
  for (const auto& entry : record) {
    const Constant* constant = constantNamed(entry.key);
    if (constant && constant->value == LoomerRecordEntityNameKey) {
      result.set(constant->value, entityFromWord(entry.value.string()));
    } else {
      result.set(constant ? constant->value : entry.key, valueFromScenario(entry.value));
    }
  }
  return result;
}

Dictionary recordForResult(const Dictionary& record) {
  const Entity* entity = entityOfRecord(record);
  Dictionary result;
  for (const auto& entry : record) {
    const Constant* constant = constantOfValue(entry.key, entity ? entity->owner : Owner::folder);
    if (entity && entry.key == LoomerRecordEntityNameKey) {
      result.set(constant->name, entity->word);
    } else {
      result.set(constant ? String(constant->name) : entry.key, valueForResult(entry.value));
    }
  }
  return result;
}

}  // namespace corvane::scenario

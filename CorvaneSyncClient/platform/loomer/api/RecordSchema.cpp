#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

constexpr std::string_view kSystemLibrary = "/System/Library/";
constexpr const char* kBookmarksSchema =
    "/System/Library/PrivateFrameworks/Quillet.framework/Resources/Corvane.syncschema";
constexpr const char* kBrowserBundle = "com.keldra.Corvane";

[[noreturn]] void fail(const std::string& path, const Message& cause) {
  throw SchemaProblem(
      Message("The sync schema %1 cannot be used: %2. Install the program again to bring the "
              "file back.",
              path, cause));
}

// What is wrong, for `readFile` to say where.
[[noreturn]] void reject(Message cause) { throw SchemaProblem(std::move(cause)); }

String required(const Dictionary& dictionary, const char* key, const Message& where) {
  String text = dictionary.string(key);
  if (!text || text.empty()) reject(Message("%1 has no \"%2\"", where, key));
  return text;
}

std::vector<String> strings(const Dictionary& dictionary, const char* key) {
  std::vector<String> texts;
  if (const Array* array = dictionary.array(key)) {
    for (const Value& value : *array) {
      if (value.string()) texts.push_back(value.string());
    }
  }
  return texts;
}

// Enters one attribute under its meaning, which decides the type that it must have.
void readAttribute(const Dictionary& attribute, EntitySchema& schema) {
  const std::string_view entity = schema.name.view();
  const String key = interned(required(attribute, "Key", Message("an attribute of the entity %1", entity)));
  const Message where("the attribute \"%1\" of the entity %2", key.view(), entity);
  const String type = required(attribute, "Type", where);
  const String meaning = required(attribute, "Meaning", where);
  struct Form {
    const char* meaning;
    const char* type;
    String* target;
  };
  const Form forms[] = {{"name", "string", &schema.nameKey},
                        {"url", "URL", &schema.urlKey},
                        {"tab group", "integer", &schema.tabGroupKey},
                        {"position", "integer", &schema.positionKey}};
  for (const Form& form : forms) {
    if (!(meaning == form.meaning)) continue;
    if (!(type == form.type)) {
      reject(Message("%1 must be of type %2", where, form.type));
    }
    *form.target = key;
    if (const String alias = attribute.string("HandedDownAlsoAs"))
      schema.positionAliases.push_back(interned(alias));
    return;
  }
  reject(Message("%1 has the unknown meaning \"%2\"", where, meaning.view()));
}

std::string listed(const std::vector<String>& keys) {
  std::string text;
  for (const String& key : keys) text += (text.empty() ? "\"" : ", \"") + key.toString() + '"';
  return text;
}

// The merge takes two records without a common id for one by just these attributes: a schema that declares
// others would promise what no session keeps.
void checkIdentity(const EntitySchema& schema, std::vector<String> declared) {
  std::vector<String> needed{schema.nameKey, schema.parentKey};
  if (schema.entity == Entity::bookmark) needed.push_back(schema.urlKey);
  const auto byText = [](const String& a, const String& b) { return a.view() < b.view(); };
  std::sort(needed.begin(), needed.end(), byText);
  std::sort(declared.begin(), declared.end(), byText);
  if (declared == needed) return;
  if (declared.empty()) {
    reject(Message("the entity %1 has no identity attributes, but records are told apart by %2",
                   schema.name.view(), listed(needed)));
  }
  reject(Message("the identity attributes of the entity %1 are %2, but records are told apart by %3",
                 schema.name.view(), listed(declared), listed(needed)));
}

void checkComplete(const EntitySchema& schema, const String& ordering, const Message& where) {
  if (!schema.nameKey) reject(Message("%1 has no attribute that is its name", where));
  if (!schema.positionKey) reject(Message("%1 has no attribute that is its position", where));
  if (!(ordering == schema.positionKey))
    reject(Message("the ordering attribute of the entity %1 is not its position", schema.name.view()));
  if (schema.entity == Entity::bookmark && !schema.urlKey)
    reject(Message("%1 has no attribute that is its URL", where));
  if (schema.entity == Entity::folder && !schema.tabGroupKey) {
    reject(Message("%1 has no attribute that tells groups of tabs", where));
  }
  // The numbers that the engine gives siblings leave out this one alone.
  if (schema.entity == Entity::folder && schema.specialPosition != LoomerPositionSpecial)
    reject(Message("the special position of the entity %1 is not %2", schema.name.view(),
                   std::to_string(LoomerPositionSpecial)));
}

EntitySchema readEntity(const Dictionary& dictionary) {
  EntitySchema schema;
  schema.name = required(dictionary, "Name", Message("an entity"));
  const Message where("the entity %1", schema.name.view());
  const String kind = required(dictionary, "Kind", where);
  if (!(kind == "folder") && !(kind == "bookmark"))
    reject(Message("%1 is of the unknown kind \"%2\"", where, kind.view()));
  schema.entity = kind == "folder" ? Entity::folder : Entity::bookmark;
  schema.parentKey = interned(required(dictionary, "ParentRelationship", where));
  schema.specialPosition = dictionary.integer32("SpecialPosition");
  if (const Array* attributes = dictionary.array("Attributes")) {
    for (const Value& attribute : *attributes) {
      if (const auto* form = attribute.as<Dictionary>()) readAttribute(*form, schema);
    }
  }
  checkComplete(schema, required(dictionary, "OrderingAttribute", where), where);
  checkIdentity(schema, strings(dictionary, "IdentityAttributes"));
  return schema;
}

RecordSchema readSchema(const Dictionary& file) {
  if (!(file.string("DataClass") == LoomerDataClass_Bookmarks))
    reject(Message("it is not of the bookmarks data class"));
  RecordSchema schema;
  bool found[2] = {false, false};
  if (const Array* entities = file.array("Entities")) {
    for (const Value& value : *entities) {
      const auto* dictionary = value.as<Dictionary>();
      if (!dictionary) continue;
      EntitySchema entity = readEntity(*dictionary);
      const auto kind = static_cast<std::size_t>(entity.entity);
      if (found[kind]) reject(Message("the entity %1 is the second one of its kind", entity.name.view()));
      found[kind] = true;
      schema.entities[kind] = std::move(entity);
    }
  }
  if (!found[0] || !found[1]) reject(Message("it does not declare both folders and bookmarks"));
  return schema;
}

RecordSchema readFile(const std::string& path, const std::string& bytes) {
  try {
    const Value value = readPropertyList(bytes);
    const auto* file = value.as<Dictionary>();
    if (!file) reject(Message("it is no dictionary but a %1", value.typeName()));
    return readSchema(*file);
  } catch (const PropertyListException& exception) {
    fail(path, exception.message());
  } catch (const SchemaProblem& problem) {
    fail(path, problem.message());
  }
}

// The same path in the installation: the directory that holds the browser's bundle takes the root's place.
// Nothing for other paths, and when there is no such bundle.
std::optional<std::string> pathInInstallation(const std::string& path) {
  if (!path.starts_with(kSystemLibrary)) return std::nullopt;
  const auto browser = Platform::current().bundles.bundleWithIdentifier(kBrowserBundle);
  if (!browser) return std::nullopt;
  const std::string bundle = browser->path();
  return bundle.substr(0, bundle.rfind('/')) + path;
}

// The same text unless a file or the service might not be able to hold it.
String wellFormed(const String& text) {
  if (isAscii(text.view()) || isValidUtf8(text.view())) return text;
  return repairedUtf8(text.view());
}

}  // namespace

const EntitySchema* RecordSchema::named(const String& name) const {
  for (const EntitySchema& each : entities) {
    if (each.name == name) return &each;
  }
  return nullptr;
}

Url bookmarksSchemaUrl() { return fileUrl(kBookmarksSchema); }

RecordSchema readRecordSchema(const std::vector<Url>& urls) {
  if (urls.empty())
    throw SchemaProblem(Message("The client names no sync schema. Install the program again."));
  const auto named = pathOfFileUrl(urls.front());
  if (!named) fail(urls.front().text.toString(), Message("it is not named by a file URL"));
  const std::string& path = *named;
  std::string bytes;
  std::error_code error = Platform::current().files.read(path, bytes);
  if (!error) return readFile(path, bytes);
  if (const auto installed = pathInInstallation(path)) {
    error = Platform::current().files.read(*installed, bytes);
    if (!error) return readFile(*installed, bytes);
    fail(*installed, error.message());
  }
  fail(path, error.message());
}

ClientRecord clientRecord(const EntitySchema& schema, const String& localId, const Dictionary& record) {
  const auto textAt = [&record](const String& key) {
    const Value* const value = record.find(key);
    return value ? value->string() : String();
  };
  ClientRecord result;
  result.localId = localId;
  result.entity = schema.entity;
  const Value* const parents = record.find(schema.parentKey);
  const Array* const folders = parents ? parents->as<Array>() : nullptr;
  if (folders && !folders->empty()) {
    const String parent = (*folders)[0].string();
    if (!(parent == LoomerRootIdentifier)) result.parentLocalId = parent;
  }
  const Value* const position = record.find(schema.positionKey);
  result.position = position ? position->integer32().value_or(0) : 0;
  result.content.name = wellFormed(textAt(schema.nameKey));
  if (schema.entity == Entity::bookmark) {
    const Value* const url = record.find(schema.urlKey);
    const Url* const typed = url ? url->as<Url>() : nullptr;
    result.content.url = wellFormed(typed ? typed->text : textAt(schema.urlKey));
  } else {
    result.content.tabGroup = record.integer32(schema.tabGroupKey.view()) == 1;
    result.content.special =
        schema.specialPosition && result.position == *schema.specialPosition && !result.parentLocalId;
  }
  return result;
}

Dictionary recordDictionary(const EntitySchema& schema, const Content& content, std::int32_t position,
                            const String& parentLocalId) {
  const bool special = content.special && schema.specialPosition;
  const Value placed = special ? *schema.specialPosition : position;
  Dictionary record;
  record.reserve(5 + schema.positionAliases.size());
  record.setInterned(LoomerRecordEntityNameKey, schema.name);
  if (content.name) record.setInterned(schema.nameKey, wellFormed(content.name));
  if (content.url && schema.urlKey) record.setInterned(schema.urlKey, Url{wellFormed(content.url)});
  record.setInterned(schema.positionKey, placed);
  for (const String& alias : schema.positionAliases) record.setInterned(alias, placed);
  if (schema.tabGroupKey) record.setInterned(schema.tabGroupKey, content.tabGroup ? 1 : 0);
  if (parentLocalId) record.setInterned(schema.parentKey, Array{parentLocalId});
  return record;
}

}  // namespace corvane::loomer

// Whatever a client, a file or an administrator gives corvane-hub: a name that is taken leads nowhere but
// into its account's objects, and what the server writes it reads again.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "fuzz/Require.h"
#include "tools/corvane-hub/ComputerToken.h"
#include "tools/corvane-hub/HubConfiguration.h"
#include "tools/corvane-hub/HubFailure.h"
#include "tools/corvane-hub/RequestHead.h"
#include "tools/corvane-hub/UsageLedger.h"

namespace corvane::hubserver {

namespace {

bool isHarmless(const std::string& name) {
  return !name.empty() && name.size() < 256 && name[0] != '.' &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.';
         });
}

void checkTarget(std::string_view text) {
  const auto target = parsedTarget(text);
  if (!target) return;
  if (const auto* list = std::get_if<ListTarget>(&*target)) {
    require(isHarmless(list->directory), "a folder's directory is a plain name");
    require(folderDirectoryOf(folderOf(list->directory)) == list->directory, "a folder is its directory's");
    return;
  }
  const ObjectPath& path = std::get<ObjectTarget>(*target).path;
  require(isHarmless(path.directory) && isHarmless(path.file), "an object's path has two plain names");
  require(path.file.find('.') == std::string::npos, "an object is no folder");
  const std::string name = folderOf(path.directory) + '/' + path.file;
  require(text.substr(0, 6 + name.size()) == "/v1/o/" + name, "an object lies where its name says");
}

void checkRequest(std::string_view text) {
  const auto head = parsedRequestHead(text);
  if (!head) return;
  require(!(head->isChunked && head->length), "a body has one length");
  require(text.ends_with("\r\n\r\n") && text.find("\r\n ") == std::string_view::npos,
          "a head is read as one");
  checkTarget(head->target);
  parsedToken(head->token);
  matchesTag(head->ifNoneMatch, "\"1-2-3-4\"");
}

void checkRecords(std::string_view text) {
  if (const auto token = parsedToken(text)) {
    require(isPrincipalName(token->account) && isPrincipalName(token->computer), "a token has names");
  }
  if (const auto record = parsedTokenRecord(text)) {
    const auto again = parsedTokenRecord(textOf(*record));
    require(again && again->revoked == record->revoked && again->hash == record->hash,
            "a token's record is read again");
  }
  std::string padded(text.substr(0, 511));
  padded.resize(511, ' ');
  if (const auto record = parsedLedgerRecord(padded + '\n')) {
    const auto again = parsedLedgerRecord(textOf(*record));
    require(again && again->bytes == record->bytes && again->boot == record->boot &&
                again->pending.has_value() == record->pending.has_value(),
            "a record of usage is read again");
  }
  if (const auto size = parsedSize(text)) sizeText(*size);
}

}  // namespace

}  // namespace corvane::hubserver

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane::hubserver;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  checkRequest(text);
  checkTarget(text);
  checkRecords(text);
  try {
    for (const ListenAddress& address : parsedConfiguration(text, "fuzz").listen) address.text();
  } catch (const HubFailure&) {
    // a configuration that is refused
  }
  return 0;
}

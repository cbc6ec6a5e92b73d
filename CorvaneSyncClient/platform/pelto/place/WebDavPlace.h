#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceCredentials.h"
#include "CorvaneSyncClient/platform/pelto/place/WebDavListing.h"

namespace corvane::pelto {

/// A folder on a WebDAV server. Conditional writes are atomic on few of those; what keeps a second writer off
/// on most is that a collection with something in it is not moved over another such one. So an object that
/// `putNew` makes is a collection with the one member "o", moved to its name from one of a temporary name;
/// the others are plain files.
///
/// Name and password go by HTTP's Basic scheme, or by Digest to a server that asks for it.
class WebDavPlace : public Place {
 public:
  WebDavPlace(const PlaceAddress& address, const PlaceCredentials& credentials, Deadline deadline,
              double pauseBeforeEnd = 0);

  Made putNew(const std::string& name, std::string_view bytes) override;
  void put(const std::vector<NamedBytes>& objects) override;
  std::vector<GetAnswer> get(const std::vector<GetRequest>& requests) override;
  std::vector<PlaceObject> list(const std::string& folder) override;
  void remove(const std::vector<std::string>& names) override;
  Message description() const override { return _address.description(); }
  std::string software() const override { return _client.server(); }
  std::vector<std::string> caveats() const override {
    return {
        "After a power cut there, the newest changes can be gone: WebDAV servers don't wait for the disk. "
        "The "
        "computers find that out and give them again."};
  }

 private:
  HttpSettings settings(double pauseBeforeEnd) const;
  std::vector<HttpAnswer> perform(const std::vector<HttpRequest>& requests);
  HttpAnswer perform(const HttpRequest& request);
  std::string urlOf(std::string_view name) const;
  void makeFolder(const std::string& name, const Message& what);
  void makeCollection(const std::string& name, const Message& what);
  bool isKnownToBeThere(const std::string& name, const Message& what);
  void discard(const std::string& temporary);
  std::vector<WebDavEntry> entriesOf(const HttpRequest& request, const HttpAnswer& answer) const;
  void removeLeftovers(const std::string& folder, const std::vector<WebDavEntry>& entries,
                       const HttpAnswer& answer);

  PlaceAddress _address;
  PlaceCredentials _credentials;
  bool _usesDigest = false;
  std::set<std::string, std::less<>> _folders;  // that are there
  HttpClient _client;
};

}  // namespace corvane::pelto

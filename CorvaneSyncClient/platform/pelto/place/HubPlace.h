#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

/// How to talk to the corvane-hub at `address`.
HttpSettings hubSettings(const PlaceAddress& address, const SharedSecret& token);
/// Where the object `name` is there.
std::string hubObjectUrl(const PlaceAddress& address, const std::string& name);

/// A corvane-hub, which keeps the objects of the account that this computer's token belongs to.
class HubPlace : public Place {
 public:
  HubPlace(const PlaceAddress& address, const SharedSecret& token, Deadline deadline,
           double pauseBeforeEnd = 0);

  Made putNew(const std::string& name, std::string_view bytes) override;
  void put(const std::vector<NamedBytes>& objects) override;
  std::vector<GetAnswer> get(const std::vector<GetRequest>& requests) override;
  std::vector<PlaceObject> list(const std::string& folder) override;
  void remove(const std::vector<std::string>& names) override;
  Message description() const override { return _description; }
  std::string software() const override { return _client.server(); }

 private:
  std::string urlOf(const std::string& name) const;

  Message _description;
  PlaceAddress _address;
  HttpClient _client;
};

}  // namespace corvane::pelto

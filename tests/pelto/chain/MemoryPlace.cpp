#include "tests/pelto/chain/MemoryPlace.h"

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceNames.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

using namespace pelto;

class MemoryPlace::Connection : public Place {
 public:
  explicit Connection(MemoryPlace& place) : _place(place) {}

  Made putNew(const std::string& name, std::string_view bytes) override {
    requirePlaceName(name);
    ++_place.requests;
    note("put new");
    const bool isMade = _place.objects.try_emplace(name, Object{std::string(bytes), now()}).second;
    note("put new done");
    return isMade ? Made::made : Made::present;
  }

  void put(const std::vector<NamedBytes>& written) override {
    _place.requests += written.size();
    note("put");
    for (const NamedBytes& each : written) {
      requirePlaceName(each.name);
      _place.objects.insert_or_assign(each.name, Object{each.bytes, now()});
    }
    note("put done");
  }

  std::vector<GetAnswer> get(const std::vector<GetRequest>& wanted) override {
    _place.requests += wanted.size();
    note("get");
    std::vector<GetAnswer> answers;
    for (const GetRequest& each : wanted) answers.push_back(answerTo(each));
    note("get done");
    return answers;
  }

  std::vector<PlaceObject> list(const std::string& folder) override {
    requirePlaceFolder(folder);
    ++_place.requests;
    note("list");
    std::vector<PlaceObject> found;
    for (const auto& [name, object] : _place.objects) {
      if (folderOf(name) == folder) found.push_back({name, object.bytes.size(), object.date});
    }
    note("list done");
    return found;
  }

  void remove(const std::vector<std::string>& names) override {
    _place.requests += names.size();
    note("remove");
    for (const std::string& each : names) _place.objects.erase(each);
    note("remove done");
  }

  Message description() const override { return "the test's memory"; }

 private:
  GetAnswer answerTo(const GetRequest& request) const {
    requirePlaceName(request.name);
    const auto found = _place.objects.find(request.name);
    if (found == _place.objects.end()) return {};
    const std::string& bytes = found->second.bytes;
    if (bytes.size() > request.mostBytes) return {GetAnswer::State::tooLong, {}, {}};
    const std::string tag = std::to_string(sipHash({}, bytes));
    if (tag == request.tag) return {GetAnswer::State::unchanged, {}, tag};
    return {GetAnswer::State::present, bytes, tag};
  }

  Date now() const { return Date{Platform::current().clock.now().seconds + _place.clockAhead}; }

  void note(const std::string& call) {
    if (!call.ends_with(" done")) _place.calls.push_back(call);
    if (_place.onCall) _place.onCall(call);
  }

  MemoryPlace& _place;
};

std::unique_ptr<Place> MemoryPlace::connect() { return std::make_unique<Connection>(*this); }

}  // namespace corvane

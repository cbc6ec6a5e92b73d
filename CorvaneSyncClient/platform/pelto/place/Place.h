#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane::pelto {

/// What became of an attempt to make an object.
enum class Made {
  made,     ///< by this call, whole, and no other writer is told so of that name
  present,  ///< an object of that name was there already; whether an earlier attempt of the caller's, it
            ///< cannot tell
  unknown,  ///< sent, and not answered for certain; may still be carried out at any later time
};

/// How an object comes to be. Its reader has to know: a place may keep the two kinds in different forms.
enum class Writing {
  contested,  ///< by `putNew`: several writers may try for the name
  alone,      ///< by `put`: only one writer ever uses the name, and always with the same bytes
};

/// An object to be written.
struct NamedBytes {
  std::string name;
  std::string bytes;
};

/// An object as a listing shows it.
struct PlaceObject {
  std::string name;         ///< all of it, folders included
  std::uint64_t bytes = 0;  ///< 0 where the place does not tell, as WebDAV does for contested objects
  Date date;                ///< when it was written, by the place's own clock
};

/// An object to be read.
struct GetRequest {
  std::string name;
  Writing writing = Writing::contested;
  std::string tag;            ///< of the copy that the reader has; "" for none
  std::size_t mostBytes = 0;  ///< a longer object is none of the reader's
};

/// What a place answers to a GetRequest.
struct GetAnswer {
  enum class State {
    absent,
    unchanged,  ///< still what the request's tag stands for; `bytes` is empty
    present,
    tooLong,  ///< something longer than the request's `mostBytes`, of which nothing is given
  };
  State state = State::absent;
  std::string bytes;
  std::string tag;  ///< to ask again with; "" where the place has none
};

/// Where one account's objects are kept: by a server, in a bucket, in a directory. It knows nothing of what
/// they hold.
///
/// Names are one or more folders and a last part, `FOLDER/NAME`, each 1 to 100 bytes of a-z, 0-9 and "-";
/// another name is a programming error. Folders come into being with the first object in them.
///
/// A place is made for one exchange and has one deadline for all its calls. Every call raises PlaceException
/// where the place cannot be reached, refuses, is not done by the deadline, or answers what it should not: an
/// answer that is cut is never taken for an object. A place may be lying or
/// forget; nothing here finds that out.
class Place {
 public:
  virtual ~Place() = default;

  /// Makes the object `name`, whole or not at all, unless there is one of that name, which is never replaced.
  /// Raises only where the place is known not to have made it.
  virtual Made putNew(const std::string& name, std::string_view bytes) = 0;
  /// Writes objects whose names only one writer ever uses; several at a time, in any order. Those that are
  /// there may be written again. When this raises, some may have been written.
  virtual void put(const std::vector<NamedBytes>& objects) = 0;
  /// Reads objects, up to eight at a time; the answers are in the order of the requests.
  virtual std::vector<GetAnswer> get(const std::vector<GetRequest>& requests) = 0;
  /// The objects directly in a folder, in any order; none when there is no such folder. What stands there by
  /// other names is passed over. Leftovers of writers that were killed are removed on the way, a day later.
  virtual std::vector<PlaceObject> list(const std::string& folder) = 0;
  /// Removes objects; those that are not there count as removed.
  virtual void remove(const std::vector<std::string>& names) = 0;
  /// Where it is, in words and without secrets: "the directory /mnt/share".
  virtual Message description() const = 0;
  /// What the place calls itself once it has answered, "Apache/2.4.71, HTTP/1.1"; "" where it does not say.
  virtual std::string software() const { return {}; }
  /// What places of this kind cannot promise, in sentences for the user.
  virtual std::vector<std::string> caveats() const { return {}; }
};

}  // namespace corvane::pelto

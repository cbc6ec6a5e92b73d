// The block's form: https://github.com/lz4/lz4/blob/dev/doc/lz4_Block_format.md

#include "tools/loomerctl/browsers/MozLz4.h"

#include <cstddef>
#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

constexpr std::size_t kSizeOffset = 8;
constexpr std::size_t kBlockOffset = kSizeOffset + 4;
constexpr std::size_t kLargestContents = std::size_t{1} << 30;
constexpr std::size_t kShortestMatch = 4;
constexpr std::size_t kGreatestNibble = 15;
constexpr std::size_t kGreatestByte = 255;

// One block, which is a row of sequences: bytes as they are, then how far back, and for how long, the
// contents repeat themselves.
class Lz4Block {
 public:
  Lz4Block(std::string_view bytes, const std::string& name) : _bytes(bytes), _name(name) {}

  std::string contents() {
    const std::size_t size = declaredSize();
    _contents.reserve(size);
    _at = kBlockOffset;
    while (true) {
      const std::size_t token = nextByte();
      copyLiterals(length(token >> 4), size);
      if (_at == _bytes.size()) break;  // the last sequence has no match
      repeat(size, token & kGreatestNibble);
    }
    if (_contents.size() != size) refuseSize();
    return std::move(_contents);
  }

 private:
  [[noreturn]] void refuseEnd() const {
    throw Refused{
        tr("%1 is damaged: it ends in the middle of what is compressed, at offset %2.", _name, offset())};
  }
  [[noreturn]] void refuseSize() const {
    throw Refused{
        tr("%1 is damaged: by offset %2, there is another size in it than it says.", _name, offset())};
  }
  std::string offset() const { return std::to_string(_at); }

  std::size_t nextByte() {
    if (_at == _bytes.size()) refuseEnd();
    return static_cast<unsigned char>(_bytes[_at++]);
  }

  // A block of n bytes never has more than 255 n in it; a size beyond that would only take memory.
  std::size_t declaredSize() {
    _at = kSizeOffset;
    std::size_t size = 0;
    for (std::size_t i = 0; i < kBlockOffset - kSizeOffset; ++i) size |= nextByte() << (8 * i);
    if (size > kLargestContents || size > (_bytes.size() - kBlockOffset) * kGreatestByte) refuseSize();
    return size;
  }

  // A length of 15 or more goes on in the bytes that follow, up to the first that is not 255.
  std::size_t length(std::size_t nibble) {
    std::size_t length = nibble;
    for (bool goesOn = nibble == kGreatestNibble; goesOn;) {
      const std::size_t more = nextByte();
      length += more;
      goesOn = more == kGreatestByte;
    }
    return length;
  }

  void copyLiterals(std::size_t count, std::size_t size) {
    if (count > _bytes.size() - _at) refuseEnd();
    if (count > size - _contents.size()) refuseSize();
    _contents += _bytes.substr(_at, count);
    _at += count;
  }

  void repeat(std::size_t size, std::size_t nibble) {
    std::size_t back = nextByte();
    back |= nextByte() << 8;
    if (back == 0 || back > _contents.size()) {
      throw Refused{tr("%1 is damaged: what is compressed refers to nothing at offset %2.", _name, offset())};
    }
    const std::size_t count = length(nibble) + kShortestMatch;
    if (count > size - _contents.size()) refuseSize();
    // Byte by byte, since what is repeated may reach into what it becomes.
    for (std::size_t i = 0; i < count; ++i) _contents += _contents[_contents.size() - back];
  }

  std::string_view _bytes;
  const std::string& _name;
  std::size_t _at = 0;
  std::string _contents;
};

}  // namespace

std::string mozLz4Contents(std::string_view bytes, const std::string& name) {
  return Lz4Block(bytes, name).contents();
}

}  // namespace corvane::loomerctl

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

// The tool's `operator new` and `operator delete`.
//
// A run makes a great many small objects, keeps most of them, and ends. They are cut one after another from
// chunks, and those of one size that are dropped wait in a list for the next of that size: some ten
// instructions each way instead of a hundred. Chunks are never given back. Larger blocks are malloc's, and so
// is all that C libraries allocate, whose threads never come here: there is one thread that runs C++.

namespace {

// A block is some units long: a header of half a unit and what the caller sees, which is aligned like a unit.
constexpr std::size_t kUnit = 16;
constexpr std::size_t kHeader = 8;
constexpr std::size_t kMostUnits = 16;
constexpr std::size_t kChunk = 256 * 1024;
static_assert(kUnit == __STDCPP_DEFAULT_NEW_ALIGNMENT__ && kHeader == sizeof(std::size_t));

struct Dropped {
  Dropped* next;
};

Dropped* dropped[kMostUnits + 1] = {};  // by their units
char* freeBegin = nullptr;              // what is left of the newest chunk; half a unit before a unit begins
char* freeEnd = nullptr;

char* checked(void* memory) {
  if (!memory) throw std::bad_alloc();
  return static_cast<char*>(memory);
}

// The header of a block says how many units it has; 0 for one of malloc's.
void* headed(char* block, std::size_t units) {
  std::memcpy(block, &units, kHeader);
  return block + kHeader;
}

void* cut(std::size_t units) {
  if (static_cast<std::size_t>(freeEnd - freeBegin) < units * kUnit) {
    char* const chunk =
        checked(std::malloc(kChunk));  // what is left of the chunk before is lost, a block at most
    freeBegin = chunk + kUnit - kHeader;
    freeEnd = chunk + kChunk - kHeader;
  }
  char* const block = freeBegin;
  freeBegin += units * kUnit;
  return headed(block, units);
}

}  // namespace

void* operator new(std::size_t size) {
  if (size > kMostUnits * kUnit - kHeader) {
    if (size > static_cast<std::size_t>(-1) / 2) throw std::bad_alloc();
    return headed(checked(std::malloc(size + kUnit)) + kUnit - kHeader, 0);
  }
  const std::size_t units = (size + kHeader + kUnit - 1) / kUnit;
  Dropped* const block = dropped[units];
  if (!block) return cut(units);
  dropped[units] = block->next;
  return block;
}

void operator delete(void* memory) noexcept {
  if (!memory) return;
  std::size_t units;
  std::memcpy(&units, static_cast<char*>(memory) - kHeader, kHeader);
  if (units == 0) return std::free(static_cast<char*>(memory) - kUnit);
  dropped[units] = new (memory) Dropped{dropped[units]};
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

// The tool's `operator new` and `operator delete`.
//
// A run makes a great many small objects, keeps most of them, and ends. They are cut one after another from
// chunks, each of which holds blocks of one size, and those that are dropped wait in a list for the next of
// that size: some ten instructions each way instead of a hundred. A block has no header, since its chunk
// tells its size. Chunks are never given back. Larger blocks are malloc's, and so is all that C libraries
// allocate, whose threads never come here: there is one thread that runs C++.

namespace {

constexpr std::size_t kUnit = 16;
constexpr std::size_t kMostUnits = 16;
constexpr std::size_t kChunk = 64 * 1024;
// All chunks lie in one range of addresses, by which they are told from malloc's blocks. Memory comes to it,
// as to the largest blocks, in large pages where the system has them: a tree is read in no order of
// addresses, so that of small pages each costs an interruption first, and then a look through the page tables
// at a time.
constexpr std::size_t kAddresses = std::size_t{1} << 34;
constexpr std::size_t kStep = 2 * 1024 * 1024;
static_assert(kStep % kChunk == 0 && kUnit == __STDCPP_DEFAULT_NEW_ALIGNMENT__);

struct Dropped {
  Dropped* next;
};

// The blocks of one size.
struct Blocks {
  Dropped* dropped;
  char* begin;  // what is left of their newest chunk
  char* end;
};

Blocks blocks[kMostUnits + 1] = {};  // by their units
std::uint8_t unitsOf[kAddresses / kChunk] = {};
char* first = nullptr;      // the first chunk
std::size_t addresses = 0;  // none before the first chunk, and where the system does not give them
std::size_t usable = 0;     // of these, how many have memory
std::size_t used = 0;       // and how many are chunks
bool hasAsked = false;

void* checked(void* memory) {
  if (!memory) throw std::bad_alloc();
  return memory;
}

void reserve() {
  hasAsked = true;
  std::size_t bytes = kAddresses + kStep;
  void* range = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (range == MAP_FAILED) return;  // as where a limit is set: malloc serves
  first = static_cast<char*>(std::align(kStep, kAddresses, range, bytes));
  addresses = kAddresses;
  madvise(first, addresses, MADV_HUGEPAGE);  // where that fails, small pages serve
}

// A new chunk for blocks of so many units; false where there is no more of them.
bool addChunk(std::size_t units) {
  if (!hasAsked) reserve();
  if (used == usable) {
    if (usable == addresses || mprotect(first + usable, kStep, PROT_READ | PROT_WRITE) != 0) return false;
    usable += kStep;
  }
  unitsOf[used / kChunk] = static_cast<std::uint8_t>(units);
  char* const chunk = first + used;
  used += kChunk;
  blocks[units].begin = chunk;
  blocks[units].end = chunk + kChunk / (units * kUnit) * (units * kUnit);
  return true;
}

// The largest blocks, such as the bytes of a file and the tables of all records, malloc maps.
void* mallocBlock(std::size_t size) {
  void* const block = checked(std::malloc(size));
  void* inner = block;
  std::size_t left = size;
  if (size >= 2 * kStep && std::align(kStep, kStep, inner, left)) {
    madvise(inner, left / kStep * kStep, MADV_HUGEPAGE);
  }
  return block;
}

}  // namespace

void* operator new(std::size_t size) {
  if (size > kMostUnits * kUnit) return mallocBlock(size);
  const std::size_t units = size == 0 ? 1 : (size + kUnit - 1) / kUnit;
  Blocks& own = blocks[units];
  if (Dropped* const block = own.dropped) {
    own.dropped = block->next;
    return block;
  }
  if (own.begin == own.end && !addChunk(units)) return checked(std::malloc(size));
  char* const block = own.begin;
  own.begin += units * kUnit;
  return block;
}

void operator delete(void* memory) noexcept {
  const std::size_t at = reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(first);
  if (at >= addresses) return std::free(memory);
  Blocks& own = blocks[unitsOf[at / kChunk]];
  own.dropped = new (memory) Dropped{own.dropped};
}

void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

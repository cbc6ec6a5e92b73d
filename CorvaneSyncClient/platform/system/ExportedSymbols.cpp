#include "CorvaneSyncClient/platform/system/ExportedSymbols.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdint>

namespace corvane {

namespace {

/// The parts of a loaded library's dynamic section that lead to its symbols.
struct SymbolTable {
  const ElfW(Sym) * symbols = nullptr;
  const char* names = nullptr;
  const std::uint32_t* hash = nullptr;
};

SymbolTable symbolTableOf(const link_map& library) {
  SymbolTable table;
  for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
    // The loader leaves addresses relative to the library's start where the section is read-only.
    ElfW(Addr) address = entry->d_un.d_ptr;
    if (address < library.l_addr) address += library.l_addr;
    if (entry->d_tag == DT_SYMTAB) table.symbols = reinterpret_cast<const ElfW(Sym)*>(address);
    if (entry->d_tag == DT_STRTAB) table.names = reinterpret_cast<const char*>(address);
    if (entry->d_tag == DT_GNU_HASH) table.hash = reinterpret_cast<const std::uint32_t*>(address);
  }
  return table;
}

/// A GNU hash table: counts of buckets, of leading symbols outside the table, and of filter words, a shift;
/// the filter words; the buckets, each the number of its chain's first symbol or 0; the chains, one word a
/// symbol, in which the lowest bit marks a chain's end. Exported symbols are exactly those in the chains.
template <typename Visit>
bool anyHashedSymbol(const std::uint32_t* hash, Visit visit) {
  const std::uint32_t bucketCount = hash[0];
  const std::uint32_t firstHashed = hash[1];
  const auto* filter = reinterpret_cast<const ElfW(Addr)*>(hash + 4);
  const auto* buckets = reinterpret_cast<const std::uint32_t*>(filter + hash[2]);
  const std::uint32_t* chains = buckets + bucketCount;
  for (std::uint32_t bucket = 0; bucket < bucketCount; ++bucket) {
    std::uint32_t symbol = buckets[bucket];
    if (symbol == 0) continue;
    do {
      if (visit(symbol)) return true;
    } while ((chains[symbol++ - firstHashed] & 1) == 0);
  }
  return false;
}

}  // namespace

bool exportsSymbol(void* library, const std::function<bool(std::string_view)>& matches) {
  link_map* map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0 || !map) return false;
  const SymbolTable table = symbolTableOf(*map);
  if (!table.symbols || !table.names || !table.hash) return false;
  return anyHashedSymbol(table.hash, [&](std::uint32_t index) {
    const ElfW(Sym)& symbol = table.symbols[index];
    return symbol.st_shndx != SHN_UNDEF && matches(table.names + symbol.st_name);
  });
}

}  // namespace corvane

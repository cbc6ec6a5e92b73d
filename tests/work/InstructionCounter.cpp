// A plugin of QEMU's emulator of user programs: when the program ends, it says on the standard error how many
// instructions that took.
//
//   qemu-x86_64 -plugin libcorvane_instruction_counter.so PROGRAM

#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <cstdio>

// Version 1 of the interface, as far as it is used here: Debian has no header of it.
extern "C" {

struct qemu_plugin_tb;

std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb* block);
void qemu_plugin_register_vcpu_tb_trans_cb(std::uint64_t id,
                                           void (*translated)(std::uint64_t id, qemu_plugin_tb*));
/// Operation 0 adds `value` to what `counter` points to.
void qemu_plugin_register_vcpu_tb_exec_inline(qemu_plugin_tb* block, int operation, void* counter,
                                              std::uint64_t value);
void qemu_plugin_register_atexit_cb(std::uint64_t id, void (*ending)(std::uint64_t id, void* data),
                                    void* data);

int qemu_plugin_version = 1;
int qemu_plugin_install(std::uint64_t id, const void* emulator, int count, char** arguments);

}  // extern "C"

namespace {

std::uint64_t instructions = 0;

// Counted by the block's own translation, which costs less than to be called for each.
void countWhereItRuns(std::uint64_t /*id*/, qemu_plugin_tb* block) {
  constexpr int kAdd = 0;
  qemu_plugin_register_vcpu_tb_exec_inline(block, kAdd, &instructions, qemu_plugin_tb_n_insns(block));
}

void tell(std::uint64_t /*id*/, void* /*data*/) {
  std::fprintf(stderr, "instructions: %" PRIu64 "\n", instructions);
}

}  // namespace

int qemu_plugin_install(std::uint64_t id, const void* /*emulator*/, int /*count*/, char** /*arguments*/) {
  qemu_plugin_register_vcpu_tb_trans_cb(id, countWhereItRuns);
  qemu_plugin_register_atexit_cb(id, tell, nullptr);
  return 0;
}

// SPDX-License-Identifier: MIT
// A qemu plugin. At the end of the emulated program it prints the number of executed instructions. Declares the needed
// part of qemu's plugin interface itself, because Debian does not package the header.

#include <cstddef>
#include <cstdint>
#include <cstdio>

struct qemu_info_t;
struct qemu_plugin_tb;

extern "C" {
using Translated = void (*)(std::uint64_t id, qemu_plugin_tb *block);
using Executed = void (*)(unsigned cpu, void *instructions);
using Ended = void (*)(std::uint64_t id, void *data);
void qemu_plugin_register_vcpu_tb_trans_cb(std::uint64_t id, Translated callback);
void qemu_plugin_register_vcpu_tb_exec_cb(qemu_plugin_tb *block, Executed callback, int flags, void *instructions);
void qemu_plugin_register_atexit_cb(std::uint64_t id, Ended callback, void *data);
std::size_t qemu_plugin_tb_n_insns(const qemu_plugin_tb *block);

extern const int qemu_plugin_version;
const int qemu_plugin_version = QEMU_PLUGIN_VERSION;
int qemu_plugin_install(std::uint64_t id, const qemu_info_t *info, int argc, char **argv);
}

namespace {

std::uint64_t executed = 0;

void count(unsigned /*cpu*/, void *instructions)
{
    executed += reinterpret_cast<std::uintptr_t>(instructions);
}

void translated(std::uint64_t /*id*/, qemu_plugin_tb *block)
{
    constexpr int NoRegisters = 0; // count() does not read the emulated processor's registers
    const std::uintptr_t instructions = qemu_plugin_tb_n_insns(block);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): count() takes the number itself as user data
    qemu_plugin_register_vcpu_tb_exec_cb(block, count, NoRegisters, reinterpret_cast<void *>(instructions));
}

void ended(std::uint64_t /*id*/, void * /*data*/)
{
    std::fprintf(stderr, "instructions %llu\n", static_cast<unsigned long long>(executed));
}

} // namespace

int qemu_plugin_install(std::uint64_t id, const qemu_info_t * /*info*/, int /*argc*/, char ** /*argv*/)
{
    qemu_plugin_register_vcpu_tb_trans_cb(id, translated);
    qemu_plugin_register_atexit_cb(id, ended, nullptr);
    return 0;
}

// SPDX-License-Identifier: MIT
// A library for LD_PRELOAD. Counts the heap allocations of all threads and libraries of a process, in a shared file.
// The environment variable KADO_BENCH_ALLOCATIONS has the file's path. `operator new` counts as the malloc() that it
// calls.

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// glibc's functions behind the replaced names. Do not use dlsym(), because it allocates.
extern "C" {
void *__libc_malloc(size_t size);                     // NOLINT(bugprone-reserved-identifier)
void *__libc_calloc(size_t count, size_t size);       // NOLINT(bugprone-reserved-identifier)
void *__libc_realloc(void *block, size_t size);       // NOLINT(bugprone-reserved-identifier)
void *__libc_memalign(size_t alignment, size_t size); // NOLINT(bugprone-reserved-identifier)
}

namespace {

std::atomic<std::uint64_t> uncounted; // allocations before the file is mapped
std::atomic<std::uint64_t> *counter = &uncounted;

__attribute__((constructor)) void openCounter()
{
    const char *path = std::getenv("KADO_BENCH_ALLOCATIONS");
    const int fd = path ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd < 0)
        return;
    void *const shared = ::mmap(nullptr, sizeof *counter, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    ::close(fd);
    if (shared != MAP_FAILED)
        counter = static_cast<std::atomic<std::uint64_t> *>(shared);
}

void count()
{
    counter->fetch_add(1, std::memory_order_relaxed);
}

} // namespace

extern "C" {

void *malloc(size_t size) noexcept
{
    count();
    return __libc_malloc(size);
}

void *calloc(size_t nmemb, size_t size) noexcept
{
    count();
    return __libc_calloc(nmemb, size);
}

void *realloc(void *ptr, size_t size) noexcept
{
    count();
    return __libc_realloc(ptr, size);
}

void *memalign(size_t alignment, size_t size) noexcept
{
    count();
    return __libc_memalign(alignment, size);
}

void *aligned_alloc(size_t alignment, size_t size) noexcept
{
    return memalign(alignment, size);
}

int posix_memalign(void **memptr, size_t alignment, size_t size) noexcept
{
    *memptr = memalign(alignment, size);
    return *memptr ? 0 : ENOMEM;
}

} // extern "C"

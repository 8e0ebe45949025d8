// SPDX-License-Identifier: MIT
// To be preloaded: counts the heap allocations of a process, of all its threads and libraries, in a file shared with
// whoever set KADO_BENCH_ALLOCATIONS to its path. `operator new` is counted as the malloc() that it calls.

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

// glibc's own, below the names that are replaced here. Looking those up at run time would allocate.
extern "C" {
void *__libc_malloc(size_t size);                     // NOLINT(bugprone-reserved-identifier)
void *__libc_calloc(size_t count, size_t size);       // NOLINT(bugprone-reserved-identifier)
void *__libc_realloc(void *block, size_t size);       // NOLINT(bugprone-reserved-identifier)
void *__libc_memalign(size_t alignment, size_t size); // NOLINT(bugprone-reserved-identifier)
}

namespace {

std::atomic<std::uint64_t> uncounted; // what is allocated before the file is there
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

// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

/// A block of bytes before an unmapped page. Access to a byte after the block crashes the test program, even from a
/// library that is built without sanitizers.
class PageEnd {
public:
    explicit PageEnd(std::size_t size)
    {
        const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        mapped_ = (size / page + 2) * page;
        void *memory = ::mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            std::abort();
        start_ = static_cast<char *>(memory);
        end_ = start_ + (mapped_ - page);
        if (::mprotect(end_, page, PROT_NONE) != 0)
            std::abort();
    }
    ~PageEnd() { ::munmap(start_, mapped_); }
    PageEnd(const PageEnd &) = delete;
    PageEnd &operator=(const PageEnd &) = delete;

    /// Returns the last `size` bytes of the block.
    char *last(std::size_t size) const { return end_ - size; }

private:
    std::size_t mapped_ = 0;
    char *start_ = nullptr;
    char *end_ = nullptr;
};

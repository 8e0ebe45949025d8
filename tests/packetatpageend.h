#pragma once

#include <QByteArray>

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

/// A copy of a packet that ends where the mapped memory ends: a read of one byte behind it ends the test program, also
/// one inside a library that no sanitizer looks into.
class PacketAtPageEnd {
public:
    explicit PacketAtPageEnd(const QByteArray &packet) : size_(static_cast<size_t>(packet.size()))
    {
        const auto page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
        mapped_ = (size_ / page + 2) * page;
        void *memory = ::mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            qFatal("mmap");
        start_ = static_cast<char *>(memory);
        char *end = start_ + (mapped_ - page);
        if (::mprotect(end, page, PROT_NONE) != 0)
            qFatal("mprotect");
        data_ = end - size_;
        std::memcpy(data_, packet.constData(), size_);
    }
    ~PacketAtPageEnd() { ::munmap(start_, mapped_); }
    PacketAtPageEnd(const PacketAtPageEnd &) = delete;
    PacketAtPageEnd &operator=(const PacketAtPageEnd &) = delete;

    const char *data() const { return data_; }
    int size() const { return static_cast<int>(size_); }

private:
    size_t size_;
    size_t mapped_ = 0;
    char *start_ = nullptr;
    char *data_ = nullptr;
};

// SPDX-License-Identifier: MIT
#include "eventloop/processsetup.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

void openStandardDescriptors()
{
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0)
        ::close(fd);
}

void mapLargeBlocks()
{
#ifdef __GLIBC__
    constexpr int LargeBytes = 128 * 1024; // glibc's initial threshold
    ::mallopt(M_MMAP_THRESHOLD, LargeBytes);
#endif
}

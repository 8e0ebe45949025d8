#include "core/standarddescriptors.h"

#include <fcntl.h>
#include <unistd.h>

void occupyStandardDescriptors()
{
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0)
        ::close(fd);
}

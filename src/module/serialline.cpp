// SPDX-License-Identifier: MIT
#include "module/serialline.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace {

constexpr int ReadBytes = 1024;

/// Replaces all settings, because a boot loader may have left any. Returns false if the device is not a terminal or
/// does not accept the settings.
bool configure(int fd)
{
    termios line{};
    line.c_iflag = IGNBRK | IGNPAR; // drop the garbage of a power-on, which would spoil the "Ready" after it
    line.c_cflag = CS8 | CREAD | CLOCAL;
    line.c_cc[VMIN] = 1; // with 0, a read without data would return 0 like an unplugged line
    ::cfsetspeed(&line, B9600);
    termios set{};
    // Read the settings back, because tcsetattr() succeeds even if it applied only some of them.
    return ::ioctl(fd, TIOCEXCL) == 0 && ::tcsetattr(fd, TCSANOW, &line) == 0 && ::tcgetattr(fd, &set) == 0
        && ::cfgetospeed(&set) == B9600
        && ((set.c_cflag ^ line.c_cflag) & (CSIZE | CSTOPB | PARENB | CREAD | CRTSCTS)) == 0;
}

} // namespace

bool SerialLine::open(const QString &path)
{
    FileDescriptor fd(::open(QFile::encodeName(path).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!fd.isValid() || !configure(fd.get()))
        return false;
    fd_ = std::move(fd);
    readable_ = std::make_unique<QSocketNotifier>(fd_.get(), QSocketNotifier::Read);
    connect(readable_.get(), &QSocketNotifier::activated, this, &SerialLine::read);
    writable_ = std::make_unique<QSocketNotifier>(fd_.get(), QSocketNotifier::Write);
    writable_->setEnabled(false);
    connect(writable_.get(), &QSocketNotifier::activated, this, &SerialLine::flush);
    return true;
}

void SerialLine::write(const QByteArray &bytes)
{
    if (!fd_.isValid())
        return;
    if (unsent_.size() + bytes.size() > MaxUnsentBytes) {
        qDebug("CSR8675 takes no commands, dropped one");
        return;
    }
    unsent_ += bytes;
    flush();
}

void SerialLine::read()
{
    char buffer[ReadBytes];
    const ssize_t size = ::read(fd_.get(), buffer, sizeof buffer);
    if (size > 0)
        Q_EMIT received(QByteArray(buffer, static_cast<int>(size)));
    else if (size == 0)
        fail(QStringLiteral("unplugged"));
    else if (errno != EAGAIN && errno != EINTR)
        fail(qt_error_string(errno));
}

void SerialLine::flush()
{
    const ssize_t size = ::write(fd_.get(), unsent_.constData(), static_cast<size_t>(unsent_.size()));
    if (size > 0)
        unsent_.remove(0, static_cast<int>(size));
    // A failed line also becomes readable, so read() detects the failure.
    writable_->setEnabled(!unsent_.isEmpty() && (size > 0 || errno == EAGAIN || errno == EINTR));
}

void SerialLine::fail(const QString &reason)
{
    readable_->setEnabled(false);
    writable_->setEnabled(false);
    fd_.reset();
    unsent_.clear();
    Q_EMIT failed(reason);
}

#include "module/serialline.h"

#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>

namespace {

constexpr int ReadBytes = 1024;

} // namespace

bool SerialLine::open(const QString &path)
{
    FileDescriptor fd(::open(QFile::encodeName(path).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    termios settings{};
    if (!fd.isValid() || ::tcgetattr(fd.get(), &settings) != 0)
        return false;
    ::ioctl(fd.get(), TIOCEXCL);
    ::cfmakeraw(&settings); // 8 data bits, no parity
    ::cfsetispeed(&settings, B9600);
    ::cfsetospeed(&settings, B9600);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cflag &= ~static_cast<tcflag_t>(CRTSCTS | CSTOPB);
    ::tcsetattr(fd.get(), TCSANOW, &settings);

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
    // A line that fails is also readable, where that is seen.
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

// SPDX-License-Identifier: MIT
#include "realbluez/bridge.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace realbluez {

namespace {

constexpr int LargestPacket = 65'536;

struct Controller {
    int port = -1;       ///< stream of H4 packets
    int device = -1;     ///< /dev/vhci; one H4 packet per read or write
    QByteArray received; ///< incomplete packet from the port
};

/// Returns the device file of the virtio serial port `name`, or an empty string.
QString portFile(const QString &name)
{
    const QDir ports(QStringLiteral("/sys/class/virtio-ports"));
    for (const QString &port : ports.entryList(QDir::AllEntries | QDir::NoDotAndDotDot)) {
        QFile file(ports.filePath(port + QStringLiteral("/name")));
        if (file.open(QIODevice::ReadOnly) && QString::fromUtf8(file.readAll()).trimmed() == name)
            return QStringLiteral("/dev/") + port;
    }
    return {};
}

/// Returns the length of the H4 packet at the beginning of `bytes`, or -1 when the packet's header is incomplete.
int packetLength(const QByteArray &bytes)
{
    enum Type { Data = 2, Voice = 3, Event = 4, Isochronous = 5 };
    const auto octet = [&](int index) { return static_cast<std::uint8_t>(bytes.at(index)); };
    const auto needs = [&](int header, auto payload) { return bytes.size() < header ? -1 : header + payload(); };
    if (bytes.isEmpty())
        return -1;
    switch (octet(0)) {
    case Event:
        return needs(3, [&] { return octet(2); });
    case Voice:
        return needs(4, [&] { return octet(3); });
    case Isochronous:
        return needs(5, [&] { return (octet(3) | octet(4) << 8) & 0x3FFF; });
    case Data:
    default:
        return needs(5, [&] { return octet(3) | octet(4) << 8; });
    }
}

bool writeAll(int descriptor, const char *data, ssize_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, static_cast<size_t>(size));
        if (written < 0)
            return false;
        data += written;
        size -= written;
    }
    return true;
}

bool fromPort(Controller &controller, std::vector<char> &buffer)
{
    const ssize_t size = ::read(controller.port, buffer.data(), buffer.size());
    if (size <= 0)
        return false;
    controller.received.append(buffer.data(), static_cast<int>(size));
    for (;;) {
        const int length = packetLength(controller.received);
        if (length < 0 || controller.received.size() < length)
            return true;
        if (::write(controller.device, controller.received.constData(), static_cast<size_t>(length)) != length)
            return false;
        controller.received.remove(0, length);
    }
}

bool fromKernel(const Controller &controller, std::vector<char> &buffer)
{
    const ssize_t size = ::read(controller.device, buffer.data(), buffer.size());
    return size > 0 && writeAll(controller.port, buffer.data(), size);
}

bool open(Controller &controller, const QString &port)
{
    controller.port = ::open(qPrintable(portFile(port)), O_RDWR | O_CLOEXEC);
    controller.device = ::open("/dev/vhci", O_RDWR | O_CLOEXEC);
    // This vendor packet creates a BR/EDR controller. The kernel answers with its number.
    const char create[] = {'\xFF', 0};
    char answer[16];
    return controller.port >= 0 && ::write(controller.device, create, sizeof create) == sizeof create
        && ::read(controller.device, answer, sizeof answer) > 0;
}

} // namespace

int bridge(const QStringList &ports)
{
    std::vector<Controller> controllers(static_cast<size_t>(ports.size()));
    std::vector<pollfd> polled;
    for (size_t i = 0; i < controllers.size(); ++i) {
        if (!open(controllers[i], ports.at(static_cast<int>(i)))) {
            std::perror(qPrintable(ports.at(static_cast<int>(i))));
            return EXIT_FAILURE;
        }
        polled.push_back({controllers[i].port, POLLIN, 0});
        polled.push_back({controllers[i].device, POLLIN, 0});
    }

    std::vector<char> buffer(LargestPacket);
    while (::poll(polled.data(), polled.size(), -1) > 0 || errno == EINTR) {
        for (size_t i = 0; i < polled.size(); ++i) {
            Controller &controller = controllers[i / 2];
            const bool isPort = i % 2 == 0;
            if (polled[i].revents != 0 && !(isPort ? fromPort(controller, buffer) : fromKernel(controller, buffer))) {
                std::perror(isPort ? "radio" : "/dev/vhci");
                return EXIT_FAILURE;
            }
        }
    }
    return EXIT_FAILURE;
}

} // namespace realbluez

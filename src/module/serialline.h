// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

#include <memory>

/// The device of the module's serial line.
inline constexpr char ModuleLine[] = "/dev/ttymxc3";

/// A raw serial line: 9600 baud, 8 data bits, no parity, 1 stop bit, no flow control. Breaks and bytes with a framing
/// error are dropped.
///
/// Not QSerialPort (Qt 6.4), because it reads an unplugged line in an endless loop and needs a writable lock directory.
class SerialLine : public QObject {
    Q_OBJECT
public:
    /// Bytes of the backlog for a line that does not accept them. A write beyond this limit is dropped whole and
    /// logged.
    static constexpr int MaxUnsentBytes = 4096;

    using QObject::QObject;

    /// Opens a terminal device for exclusive use. Returns false if it cannot be opened, is not a terminal or does not
    /// accept the settings.
    bool open(const QString &path);

    /// Queues the bytes and sends them without blocking. Does nothing if the line is not open.
    void write(const QByteArray &bytes);

Q_SIGNALS:
    /// Emitted after each read, with 1 to 1024 bytes.
    void received(const QByteArray &bytes);
    /// Emitted when the line was unplugged or failed. The line is now closed.
    void failed(const QString &reason);

private:
    void read();
    void flush();
    void fail(const QString &reason);

    FileDescriptor fd_;
    std::unique_ptr<QSocketNotifier> readable_;
    std::unique_ptr<QSocketNotifier> writable_;
    QByteArray unsent_;
};

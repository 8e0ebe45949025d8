// SPDX-License-Identifier: MIT
#pragma once

#include "eventloop/filedescriptor.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

#include <memory>

/// Where the module is.
inline constexpr char ModuleLine[] = "/dev/ttymxc3";

/// A serial line: 9600 baud, 8 data bits, no parity, 1 stop bit, no flow control, bytes as they are. Breaks and bytes
/// that arrive without their stop bit are dropped.
///
/// Our own, because QSerialPort (Qt 6.4) reads a line that was unplugged for ever, and needs a writable lock directory.
class SerialLine : public QObject {
    Q_OBJECT
public:
    /// Bytes kept for a line that does not take them; past that whole writes are dropped and logged.
    static constexpr int MaxUnsentBytes = 4096;

    using QObject::QObject;

    /// Opens a terminal device for this process alone; false when it cannot be opened, is none or takes other settings.
    bool open(const QString &path);

    /// Sends in the background; nothing on a line that is not open.
    void write(const QByteArray &bytes);

Q_SIGNALS:
    /// 1 to 1024 bytes have come.
    void received(const QByteArray &bytes);
    /// The line has ended or failed, and is closed.
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

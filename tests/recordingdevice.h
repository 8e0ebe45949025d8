// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QList>

/// A device that records each write.
class RecordingDevice : public QIODevice {
public:
    RecordingDevice() { open(QIODevice::WriteOnly | QIODevice::Unbuffered); }

    QList<QByteArray> writes;

    QByteArray everything() const { return writes.join(); }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *data, qint64 size) override
    {
        writes.append(QByteArray(data, static_cast<int>(size)));
        return size;
    }
};

// SPDX-License-Identifier: MIT
#include "module/blankwriter.h"

#include "module/i2sswitch.h"

namespace {

// The playing time of silence_.
constexpr int BlankIntervalMs = 250;

} // namespace

BlankWriter::BlankWriter(QObject *parent) : QObject(parent)
{
    timer_.setTimerType(Qt::PreciseTimer); // a coarse timer may be late, and the player's buffer may run empty
    connect(&timer_, &QTimer::timeout, this, &BlankWriter::blankWrite);
    timer_.start(BlankIntervalMs);
}

void BlankWriter::blankWrite()
{
    if (std::unique_ptr<AudioClient> next = server_.nextClient()) {
        DeleteBlankWriteSocket();
        socket_ = std::move(next);
        connect(socket_.get(), &AudioClient::disconnected, this, &BlankWriter::DeleteBlankWriteSocket);
        qDebug("0New Blank audio out socket connection accepted");
        I2sSwitch::set(true);
    }
    if (socket_)
        socket_->write(silence_.data(), static_cast<qint64>(silence_.size()));
}

void BlankWriter::DeleteBlankWriteSocket()
{
    if (!socket_)
        return;
    qDebug("csr8675Manager::DeleteBlankWriteSocket()");
    // This may run inside the client's disconnected() signal, so delete the client later. Disconnect it now, because
    // its next signal must not end its successor.
    socket_->disconnect(this);
    socket_.release()->deleteLater();
    I2sSwitch::set(false);
}

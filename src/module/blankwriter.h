// SPDX-License-Identifier: MIT
#pragma once

#include "player/audioclient.h"
#include "player/audioserver.h"

#include <QObject>
#include <QTimer>

#include <array>
#include <memory>

/// A writer of silence to the client of the local audio socket, in real time, 16-bit stereo at 44100 Hz. The I2S switch
/// is on while a client is connected, so the player's connection turns on the module's audio. Input from the client is
/// discarded.
class BlankWriter : public QObject {
    Q_OBJECT
public:
    explicit BlankWriter(QObject *parent);

private:
    void blankWrite();
    void DeleteBlankWriteSocket();

    std::array<char, 44100> silence_{}; ///< 250 ms of 16-bit stereo at 44100 Hz
    AudioServer server_;
    std::unique_ptr<AudioClient> socket_;
    QTimer timer_;
};

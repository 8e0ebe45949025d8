// SPDX-License-Identifier: MIT
#pragma once

#include "player/audioclient.h"
#include "player/audioserver.h"

#include <QObject>
#include <QTimer>

#include <array>
#include <memory>

/// Feeds the client of the local audio socket with silence in real time, 16-bit stereo at 44100 Hz, and holds the I2S
/// switch on while there is one: the player's connection lets the module's audio through. What it writes is read and
/// forgotten.
class BlankWriter : public QObject {
    Q_OBJECT
public:
    explicit BlankWriter(QObject *parent);

private:
    void blankWrite();
    void DeleteBlankWriteSocket();

    std::array<char, 44100> silence_{}; ///< a quarter of a second
    AudioServer server_;
    std::unique_ptr<AudioClient> socket_;
    QTimer timer_;
};

// SPDX-License-Identifier: MIT
#pragma once

#include "board/filefollower.h"
#include "control/abstractmanager.h"
#include "module/linereader.h"
#include "module/moduleprotocol.h"
#include "module/serialline.h"

#include <QTimer>

class PlayerRequests;

/// The manager of a speaker whose radio is a CSR8675 module on the serial line "/dev/ttymxc3". The module handles
/// Bluetooth itself and outputs its audio on I2S. The manager corrects the module's settings, tracks its reports and
/// notifies the player.
class csr8675Manager : public AbstractManager {
    Q_OBJECT
public:
    /// Opens the serial line, requests the service name and starts checking the module's settings. Ends the process
    /// with status 1 if the line cannot be opened. A refused service name is a fatal message. `player` must outlive the
    /// manager.
    explicit csr8675Manager(PlayerRequests &player);

    /// Returns true, because the module is soldered to the board.
    bool IsAdapterPresent() const override { return true; }
    bool IsConnected() const override { return protocol_.isConnected(); }
    QString Name() const override { return protocol_.phoneName(); }
    bool IsStreaming() const override { return protocol_.isStreaming(); }
    /// Asks the player to play the socket "bluetooth", regardless of the module's state.
    void SelectBluetooth() override;

private:
    void openPort();
    void ttyRead(const QByteArray &bytes);
    void sendBTPropertyChange();

    PlayerRequests &player_;
    ModuleProtocol protocol_;
    LineReader lines_;
    SerialLine port_;
    FileFollower nameFile_;
    QTimer propertyTimer_;
    QTimer statusTimer_;
};

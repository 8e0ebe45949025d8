// SPDX-License-Identifier: MIT
#pragma once

#include "board/filefollower.h"
#include "control/abstractmanager.h"
#include "module/linereader.h"
#include "module/moduleprotocol.h"
#include "module/serialline.h"

#include <QTimer>

class PlayerRequests;

/// The manager of a speaker whose radio is a CSR8675 module on the serial line "/dev/ttymxc3". The module does the
/// Bluetooth work itself and sends its audio out on I2S; the manager keeps its settings right, follows what it reports
/// and tells the player.
class csr8675Manager : public AbstractManager {
    Q_OBJECT
public:
    /// Opens the line, takes the service name and begins with the module's name. A line that cannot be opened ends the
    /// process with status 1, a refused service name is a fatal message. `player` outlives the manager.
    explicit csr8675Manager(PlayerRequests &player);

    /// Always: the module is soldered on.
    bool IsAdapterPresent() const override { return true; }
    bool IsConnected() const override { return protocol_.isConnected(); }
    QString Name() const override { return protocol_.phoneName(); }
    bool IsStreaming() const override { return protocol_.isStreaming(); }
    /// Asks the player to play the socket "bluetooth", in whatever state the module is.
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

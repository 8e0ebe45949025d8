// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>

/// The functions that the control interface needs from a Bluetooth manager, for either kind of radio. A process has one
/// manager. Call it only from the main thread.
class AbstractManager : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    /// Returns whether Bluetooth hardware is present.
    virtual bool IsAdapterPresent() const = 0;
    /// Returns whether a phone is connected.
    virtual bool IsConnected() const = 0;
    /// Returns the D-Bus object path of the connected phone, empty if no phone is connected. A manager without object
    /// paths returns "blankPath", which is not a valid path and so equals no phone's path.
    virtual QString ConnectedDevicePath() const { return QStringLiteral("blankPath"); }
    /// Returns the display name of the connected phone.
    virtual QString Name() const = 0;
    /// Returns whether the phone is streaming audio.
    virtual bool IsStreaming() const = 0;
    /// Sets the speaker's name on the Bluetooth hardware again.
    virtual void ResetAlias() {}
    /// Disconnects the connected phone.
    virtual void Disconnect() {}
    /// Asks the player to play the Bluetooth source now.
    virtual void SelectBluetooth() = 0;
};

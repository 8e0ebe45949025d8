// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>

/// The one Bluetooth manager of the process, whichever hardware it drives: what the control interface knows of it. All
/// calls come from the main thread.
class AbstractManager : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    /// Bluetooth hardware is there.
    virtual bool IsAdapterPresent() const = 0;
    /// A phone is connected.
    virtual bool IsConnected() const = 0;
    /// D-Bus object path of the connected phone, empty when there is none. A manager whose phones have no path answers
    /// "blankPath", which no path can equal.
    virtual QString ConnectedDevicePath() const { return QStringLiteral("blankPath"); }
    /// Display name of the connected phone.
    virtual QString Name() const = 0;
    /// Audio is flowing.
    virtual bool IsStreaming() const = 0;
    /// Gives the hardware the speaker's name again.
    virtual void ResetAlias() {}
    /// Disconnects the connected phone.
    virtual void Disconnect() {}
    /// Asks the player to play the Bluetooth source now.
    virtual void SelectBluetooth() = 0;
};

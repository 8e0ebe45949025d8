// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/pendingcall.h"

#include <QString>

#include <functional>

/// The one phone that is tracked, and what BlueZ is asked of it.
class ConnectedDevice {
public:
    /// `named` is called when BlueZ has told the name of a phone that has connected, or has failed to.
    explicit ConnectedDevice(std::function<void()> named);

    const QString &path() const { return path_; } ///< empty: no phone
    const QString &name() const { return name_; } ///< empty until it is named
    /// BlueZ has told the name, or has failed to.
    bool isNamed() const { return isNamed_; }

    /// There is none, and this one has connected. Asks BlueZ for its "Alias".
    void connected(const QString &path);
    /// It has left.
    void disconnected();
    /// Asks BlueZ to disconnect it; nothing when there is none, or BlueZ has been asked and owes the answer.
    void Disconnect();

private:
    void askForName();

    std::function<void()> named_;
    QString path_;
    QString name_;
    bool isNamed_ = false;
    bluez::PendingCall alias_;
    bool askAgain_ = false; ///< another phone, or the same one again, has connected meanwhile
    bluez::PendingCall disconnecting_;
};

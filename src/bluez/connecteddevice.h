// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/pendingcall.h"

#include <QString>

#include <functional>

/// The tracked phone, if any, and the calls to BlueZ about it. Only one phone is tracked at a time.
class ConnectedDevice {
public:
    /// `onNamed` is called when BlueZ has replied with the name of a newly connected phone, or has failed to reply.
    explicit ConnectedDevice(std::function<void()> onNamed);

    const QString &path() const { return path_; } ///< empty if no phone is tracked
    const QString &name() const { return name_; } ///< empty until BlueZ has replied
    /// Returns whether BlueZ has replied with the name, or has failed to reply.
    bool isNamed() const { return isNamed_; }

    /// Starts to track the phone at `path` and asks BlueZ for its "Alias". Call only while no phone is tracked.
    void connected(const QString &path);
    /// Stops tracking the phone. Call when the phone has disconnected.
    void disconnected();
    /// Asks BlueZ to disconnect the phone. Does nothing if no phone is tracked or the last request is still unanswered.
    void Disconnect();

private:
    void readAlias();

    std::function<void()> onNamed_;
    QString path_;
    QString name_;
    bool isNamed_ = false;
    bluez::PendingCall aliasRead_;
    bool aliasStale_ = false; ///< set when a phone connects while aliasRead_ is pending for an earlier connection
    bluez::PendingCall disconnectCall_;
};

// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/call.h"

#include <QDBusAbstractAdaptor>
#include <QDBusObjectPath>
#include <QString>

class AdapterManager;

/// The pairing agent (BlueZ doc/agent-api.txt, Agent1). Every phone may pair without user input. Only the phone that
/// the manager tracks as connected may use services.
class Agent1 : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.Agent1")
public:
    /// Attaches the agent to `manager`, its parent and owner.
    explicit Agent1(AdapterManager *manager);
    ~Agent1() override;

    /// Returns the call that registers the agent with BlueZ.
    static bluez::Call registration();
    /// Returns the call that makes the agent BlueZ's default agent. Send it after registration().
    static bluez::Call defaultRequest();

public Q_SLOTS:
    void Release();
    /// Accepts the connected phone and refuses every other device with org.bluez.Error.Rejected.
    void AuthorizeService(const QDBusObjectPath &path, const QString &uuid);
    /// Accepts every device.
    void RequestAuthorization(const QDBusObjectPath &path);
    /// Returns an empty PIN. BlueZ does not ask a NoInputNoOutput agent for a PIN.
    QString RequestPinCode(const QDBusObjectPath &path, const QString &pincode);

private:
    AdapterManager &manager_;
};

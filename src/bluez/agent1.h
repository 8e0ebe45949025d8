// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/call.h"

#include <QDBusAbstractAdaptor>
#include <QDBusObjectPath>
#include <QString>

class AdapterManager;

/// The pairing agent (BlueZ doc/agent-api.txt, Agent1). Nobody is asked: every phone may pair, and the one phone that
/// the manager holds as connected may use services.
class Agent1 : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.Agent1")
public:
    /// Attached to `manager`, its parent and owner.
    explicit Agent1(AdapterManager *manager);
    ~Agent1() override;

    /// The calls that register it with BlueZ and make it the default one.
    static bluez::Call registration();
    static bluez::Call defaultRequest();

public Q_SLOTS:
    void Release();
    /// Refuses every device but the connected one with org.bluez.Error.Rejected.
    void AuthorizeService(const QDBusObjectPath &path, const QString &uuid);
    void RequestAuthorization(const QDBusObjectPath &path);
    /// There is no PIN to give: an empty one. BlueZ does not ask an agent without input and output.
    QString RequestPinCode(const QDBusObjectPath &path, const QString &pincode);

private:
    AdapterManager &manager_;
};

// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QString>
#include <QVariant>

namespace sim {

/// A caller of the interface org.kadobt.commands on /kadobt, as other processes of the speaker are. The event loop runs
/// during every call.
class Control {
public:
    /// Connects to the bus at `address`.
    explicit Control(const QString &address);
    ~Control();
    Control(const Control &) = delete;
    Control &operator=(const Control &) = delete;

    QDBusMessage call(const QString &method);
    QVariant property(const QString &name);
    /// Returns the introspection data of /kadobt, as XML.
    QString introspect();
    QDBusMessage setProperty(const QString &name, const QVariant &value);

private:
    QDBusConnection connection_;
};

} // namespace sim

#pragma once

#include <QDBusMessage>
#include <QString>
#include <QVariantList>

namespace bus {

/// Calls a method of BlueZ on the system bus and waits for the answer, 25 s at most: the one way in which the daemon
/// talks to BlueZ. It is a plain method call, without the introspection that a proxy object would do first. The result
/// is the reply, or an error message when BlueZ refuses, is not there or does not answer.
QDBusMessage callBluez(const QString &path, const QString &interface, const QString &method,
                       const QVariantList &arguments = {});

} // namespace bus

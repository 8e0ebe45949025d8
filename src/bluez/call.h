// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusMessage>
#include <QString>
#include <QVariant>

namespace bluez {

/// What the bus libraries grant by default. BlueZ may take seconds to bring up a radio; the rest it answers at once,
/// and nobody waits.
inline constexpr int AnswerMs = 25'000;

/// For what BlueZ knows or asks a phone for: it gives a phone 10 s at most (for a suspend under way), and has given it
/// up by then.
inline constexpr int PhoneAnswerMs = 12'000;

/// Whether the speaker works without a call.
enum class Need {
    Vital,   ///< no: its failure is logged at level 0
    Optional ///< yes: level 9
};

/// A method call to BlueZ on the system bus.
struct Call {
    QString path;
    QString interface;
    QString method;
    QVariantList arguments = {};
    Need need = Need::Optional;
    int timeoutMs = AnswerMs; ///< after which the call has failed
};

/// Logs and returns the call that writes a property of an object of BlueZ.
Call SetProperty(const QString &interface, const QString &path, const QString &name, const QVariant &value,
                 Need need = Need::Optional);

/// Logs and returns the call that reads a property of an object of BlueZ.
Call GetProperty(const QString &interface, const QString &path, const QString &name);

/// The value in the reply to GetProperty(); invalid when the call failed or the reply holds something else.
QVariant propertyValue(const QDBusMessage &reply);

/// Makes a call of which nobody awaits the answer. A failure is logged.
void send(const Call &call);

} // namespace bluez

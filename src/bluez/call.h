// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusMessage>
#include <QString>
#include <QVariant>

namespace bluez {

/// Default timeout of a call in ms, as in the D-Bus libraries. BlueZ may take seconds to power a radio and replies to
/// other calls at once. The main thread does not block meanwhile.
inline constexpr int ReplyTimeoutMs = 25'000;

/// Timeout in ms of a call that BlueZ answers itself or asks a phone for. BlueZ waits for a phone for 10 s at most
/// (during a suspend), so its reply arrives within this time.
inline constexpr int PhoneReplyTimeoutMs = 12'000;

/// Whether the speaker needs a call to succeed.
enum class Need {
    Vital,   ///< the speaker needs it; a failure is logged at level 0
    Optional ///< the speaker works without it; a failure is logged at level 9
};

/// A method call to BlueZ on the system bus.
struct Call {
    QString path;
    QString interface;
    QString method;
    QVariantList arguments = {};
    Need need = Need::Optional;
    int timeoutMs = ReplyTimeoutMs; ///< the call fails after this time without a reply
};

/// Returns, and logs, the call that writes a property of a BlueZ object.
Call SetProperty(const QString &interface, const QString &path, const QString &name, const QVariant &value,
                 Need need = Need::Optional);

/// Returns, and logs, the call that reads a property of a BlueZ object.
Call GetProperty(const QString &interface, const QString &path, const QString &name);

/// Returns the value in the reply to GetProperty(), or an invalid QVariant if the call failed or the reply has another
/// signature than "v".
QVariant propertyValue(const QDBusMessage &reply);

/// Sends a call and ignores its reply. A failure is logged.
void send(const Call &call);

} // namespace bluez

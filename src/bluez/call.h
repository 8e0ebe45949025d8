#pragma once

#include <QDBusMessage>
#include <QString>
#include <QVariant>

namespace bluez {

/// Bringing up a radio may take BlueZ seconds; this is what the bus libraries grant by default.
inline constexpr int RadioAnswerMs = 25'000;

/// For what BlueZ knows or asks a phone for: it gives a phone 10 s at most (for a suspend under way), and has given it
/// up by then. While an answer is waited for nothing else is served, and BlueZ itself waits 3 s for ours.
inline constexpr int PhoneAnswerMs = 12'000;

/// Calls a method of BlueZ on the system bus and waits for the answer, `timeoutMs` at most: the one way in which the
/// daemon talks to BlueZ. It is a plain method call, without the introspection that a proxy object would do first. The
/// result is the reply, or an error message when BlueZ refuses, is not there or does not answer.
QDBusMessage call(const QString &path, const QString &interface, const QString &method,
                  const QVariantList &arguments = {}, int timeoutMs = RadioAnswerMs);

/// Writes a property of an object of BlueZ. Whether BlueZ refuses shows in the log alone.
void SetProperty(const QString &interface, const QString &path, const QString &name, const QVariant &value);

/// Reads a property of an object of BlueZ; invalid when BlueZ does not tell it.
QVariant GetProperty(const QString &interface, const QString &path, const QString &name);

} // namespace bluez

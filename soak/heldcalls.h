#pragma once

#include "sim/fakebluez.h"

#include <QDBusMessage>
#include <QList>
#include <QString>

namespace sim {

/// The calls of one method to the fake BlueZ, `bluez`, kept back without an answer. BlueZ outlives this.
class HeldCalls {
public:
    explicit HeldCalls(FakeBluez &bluez) : bluez_(bluez) {}
    ~HeldCalls() { bluez_.stopIntercepting(member_); }
    HeldCalls(const HeldCalls &) = delete;
    HeldCalls &operator=(const HeldCalls &) = delete;

    /// From now on those of `member` are kept back. Not while those of another method are.
    void hold(const QString &member);
    bool isHolding() const { return !member_.isEmpty(); }
    bool holds(const char *member) const { return member_ == QLatin1String(member); }
    bool arrived() const { return !calls_.isEmpty(); }

    /// Answers all, in order; later ones are answered at once.
    void answer();
    /// The object at `path` has gone, with those below it. The calls to them are refused now, or never `answered`.
    void objectGone(const QString &path, bool answered);
    /// BlueZ has gone, and does not answer any of them. Calls to the next BlueZ are kept back as well.
    void bluezGone() { calls_.clear(); }

private:
    FakeBluez &bluez_;
    QString member_;
    QList<QDBusMessage> calls_;
};

} // namespace sim

// SPDX-License-Identifier: MIT
#include "realbluez/scenarios.h"

#include "realbluez/phone.h"

#include <QFile>
#include <QMap>

namespace realbluez {

namespace {

/// Asks host or speaker for something that a phone cannot do.
bool ask(const QString &request)
{
    QFile file(Share + QLatin1Char('/') + request);
    return file.open(QIODevice::WriteOnly);
}

/// The usual beginning, the usual end, and a sound from beginning to end.
bool meet(Phone &phone)
{
    return phone.discover() && phone.pair() && phone.connect();
}

bool play(Phone &phone, int seconds)
{
    return phone.start(seconds) && phone.finish();
}

bool leave(Phone &phone)
{
    return phone.disconnect() && phone.awaitDisconnected();
}

bool pairAndPlay()
{
    Phone phone(1);
    return meet(phone) && play(phone, 6) && leave(phone);
}

bool suspendAndResume()
{
    Phone phone(1);
    return meet(phone) && play(phone, 4) && play(phone, 3) && play(phone, 3) && leave(phone);
}

bool hangUpAndLoseLink()
{
    Phone phone(1);
    return meet(phone) && phone.start(20) && phone.keepPlaying(3) && leave(phone) && phone.awaitCut() && phone.connect()
        && phone.start(20) && phone.keepPlaying(3) && ask(QStringLiteral("drop")) && phone.awaitCut()
        && phone.awaitDisconnected() && phone.awaitReconnection() && play(phone, 4) && leave(phone);
}

/// A second phone pairs, but gets no stream until the first one has left.
bool secondPhone()
{
    Phone first(1);
    Phone second(2);
    return meet(first) && first.start(20) && first.keepPlaying(1) && second.discover() && second.pair()
        && second.connectInVain() && first.finish() && leave(first) && second.connect() && play(second, 4)
        && leave(second);
}

bool bluetoothdCrashes()
{
    Phone phone(1);
    return meet(phone) && phone.start(20) && phone.keepPlaying(3) && ask(QStringLiteral("crash")) && phone.awaitCut()
        && phone.awaitDisconnected() && phone.connectAgainAndAgain() && play(phone, 4) && leave(phone);
}

const QMap<QString, bool (*)()> Scenarios{
    {QStringLiteral("pair"), pairAndPlay},        {QStringLiteral("suspend"), suspendAndResume},
    {QStringLiteral("cut"), hangUpAndLoseLink},   {QStringLiteral("second"), secondPhone},
    {QStringLiteral("crash"), bluetoothdCrashes},
};

} // namespace

QStringList scenarioNames()
{
    return Scenarios.keys();
}

bool playScenario(const QString &name)
{
    return Scenarios.contains(name) && Scenarios.value(name)();
}

} // namespace realbluez

// SPDX-License-Identifier: MIT
#include "realbluez/scenarios.h"

#include "realbluez/phone.h"

#include <QFile>
#include <QMap>

namespace realbluez {

namespace {

/// Requests an action of the host ("drop") or the speaker ("crash") by creating a file in the shared folder.
bool request(const QString &name)
{
    QFile file(Share + QLatin1Char('/') + name);
    return file.open(QIODevice::WriteOnly);
}

bool pairAndConnect(Phone &phone)
{
    return phone.discover() && phone.pair() && phone.connect();
}

bool play(Phone &phone, int seconds)
{
    return phone.start(seconds) && phone.finish();
}

bool hangUp(Phone &phone)
{
    return phone.disconnect() && phone.awaitDisconnected();
}

bool pairAndPlay()
{
    Phone phone(1);
    return pairAndConnect(phone) && play(phone, 6) && hangUp(phone);
}

bool suspendAndResume()
{
    Phone phone(1);
    return pairAndConnect(phone) && play(phone, 4) && play(phone, 3) && play(phone, 3) && hangUp(phone);
}

bool hangUpAndLoseLink()
{
    Phone phone(1);
    return pairAndConnect(phone) && phone.start(20) && phone.keepPlaying(3) && hangUp(phone) && phone.awaitStreamCut()
        && phone.connect() && phone.start(20) && phone.keepPlaying(3) && request(QStringLiteral("drop"))
        && phone.awaitStreamCut() && phone.awaitDisconnected() && phone.awaitReconnection() && play(phone, 4)
        && hangUp(phone);
}

/// A second phone pairs, but gets no stream until the first phone has disconnected.
bool secondPhone()
{
    Phone first(1);
    Phone second(2);
    return pairAndConnect(first) && first.start(20) && first.keepPlaying(1) && second.discover() && second.pair()
        && second.connectWithoutStream() && first.finish() && hangUp(first) && second.connect() && play(second, 4)
        && hangUp(second);
}

bool bluetoothdCrashes()
{
    Phone phone(1);
    return pairAndConnect(phone) && phone.start(20) && phone.keepPlaying(3) && request(QStringLiteral("crash"))
        && phone.awaitStreamCut() && phone.awaitDisconnected() && phone.connectWithRetries() && play(phone, 4)
        && hangUp(phone);
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

// SPDX-License-Identifier: MIT
#include "module/csr8675manager.h"

#include "board/speakername.h"
#include "control/dbuscommandlistener.h"
#include "log/log.h"
#include "module/blankwriter.h"
#include "player/playerrequests.h"

#include <cstdlib>

namespace {

// Debounces notifications, because the module reports a connection in a burst of lines.
constexpr int PropertyDelayMs = 1500;

// The module knows the phone's address only some time after it has reported the connection. Shorter than
// PropertyDelayMs, so that the phone's name is known before the player is notified.
constexpr int StatusDelayMs = 1250;

} // namespace

csr8675Manager::csr8675Manager(PlayerRequests &player)
    : player_(player), protocol_(readSpeakerName), nameFile_(QString::fromLatin1(SpeakerNameFile))
{
    openPort();
    new DBusCommandListener(this);
    DBusCommandListener::claimService(this);
    new BlankWriter(this);

    port_.write(ModuleProtocol::GetName);
    connect(&nameFile_, &FileFollower::changed, this, [this] { port_.write(ModuleProtocol::GetName); });

    propertyTimer_.setSingleShot(true);
    propertyTimer_.setInterval(PropertyDelayMs);
    connect(&propertyTimer_, &QTimer::timeout, this, &csr8675Manager::sendBTPropertyChange);
    statusTimer_.setSingleShot(true);
    statusTimer_.setInterval(StatusDelayMs);
    connect(&statusTimer_, &QTimer::timeout, this, [this] { port_.write(ModuleProtocol::Status); });
}

void csr8675Manager::openPort()
{
    if (!port_.open(QString::fromLatin1(ModuleLine))) {
        qDebug("Could not open CSR8675 Serial Port");
        std::exit(EXIT_FAILURE);
    }
    connect(&port_, &SerialLine::received, this, &csr8675Manager::ttyRead);
    connect(&port_, &SerialLine::failed, this,
            [](const QString &reason) { logDebug("0CSR8675 Serial Port failed:") << reason; });
}

void csr8675Manager::ttyRead(const QByteArray &bytes)
{
    const QStringList lines = lines_.feed(bytes);
    for (const QString &line : lines) {
        const ModuleReaction reaction = protocol_.process(line);
        if (!reaction.command.isEmpty())
            port_.write(reaction.command);
        if (reaction.queryStatus)
            statusTimer_.start();
        if (reaction.notify)
            propertyTimer_.start();
    }
}

void csr8675Manager::sendBTPropertyChange()
{
    player_.sendBTPropertyChange(QStringLiteral("CSR8675"), IsAdapterPresent(), IsConnected(),
                                 IsConnected() ? Name() : QString(), IsConnected() && IsStreaming());
}

void csr8675Manager::SelectBluetooth()
{
    // The format of BlankWriter.
    player_.sendPlay(QStringLiteral("pcm"), 44100, 16, 2, Name());
}

// SPDX-License-Identifier: MIT
#include "sim/story.h"

#include "sim/waiting.h"

#include <QUrl>

#include <cstdio>
#include <cstdlib>

namespace sim {

Story::Story(Daemon &daemon, const Player &player) : daemon_(daemon), player_(player)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // a person follows it, also through a pipe
    clock_.start();
    QObject::connect(&daemon, &Daemon::logLine, &listener_, [this](const QString &text) { print("kado-bt", text); });
    QObject::connect(&player, &Player::requested, &listener_,
                     [this](const PlayerRequest &request) { say("player", "is told " + request.target); });
}

void Story::say(const char *who, const QString &text) const
{
    daemon_.collectLog();
    print(who, text);
}

void Story::print(const char *who, const QString &text) const
{
    std::printf("%8.3f %-7s | %s\n", static_cast<double>(clock_.elapsed()) / 1000, who, qPrintable(text));
}

bool Story::insist(bool asItShouldBe, const QString &otherwise)
{
    if (!asItShouldBe && fault_.isEmpty())
        fault_ = otherwise;
    return asItShouldBe;
}

bool Story::awaitRequest(const QString &request)
{
    const QList<PlayerRequest> &requests = player_.requests();
    if (!insist(waitFor([&] { return requests.size() > awaitedRequests_; }),
                QStringLiteral("the player was not told ") + request))
        return false;
    const QString actual = QUrl::fromPercentEncoding(requests.at(awaitedRequests_++).target.toUtf8());
    return insist(actual == request, QStringLiteral("the player was told %1, not %2").arg(actual, request));
}

bool Story::awaitStatus(const char *type, bool connected, const QString &name, bool streaming)
{
    const auto text = [](bool value) { return QLatin1String(value ? "true" : "false"); };
    return awaitRequest(QStringLiteral("/BTPropertyChange?type=%1?adapter=true&connected=%2&name=%3&streaming=%4")
                            .arg(QLatin1String(type), text(connected), name, text(streaming)));
}

bool Story::selectBluetooth(Control &control, int sampleRate, const QString &phone)
{
    say("board", QStringLiteral("calls SelectBluetooth of the control interface"));
    return insist(control.call(QStringLiteral("SelectBluetooth")).type() == QDBusMessage::ReplyMessage,
                  QStringLiteral("SelectBluetooth failed"))
        && awaitRequest(QStringLiteral("/Play?url=Capture:bluez:bluetooth:pcm/%1/16/2&name=%2")
                            .arg(QString::number(sampleRate), phone));
}

bool Story::insistOnNoMoreRequests()
{
    return insist(player_.requests().size() == awaitedRequests_,
                  QStringLiteral("the player was told more than it should"));
}

void Story::listRequests() const
{
    std::printf("What the player was told:\n");
    for (const PlayerRequest &request : player_.requests())
        std::printf("    %s\n", qPrintable(request.target));
}

int Story::end() const
{
    if (failed()) {
        std::printf("FAILED: %s.\n", qPrintable(fault_));
        return EXIT_FAILURE;
    }
    std::printf("Everything was as it should be.\n");
    return EXIT_SUCCESS;
}

} // namespace sim

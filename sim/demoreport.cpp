// SPDX-License-Identifier: MIT
#include "sim/demoreport.h"

#include "sim/waiting.h"

#include <QUrl>

#include <cstdio>
#include <cstdlib>

namespace sim {

DemoReport::DemoReport(Daemon &daemon, const Player &player) : daemon_(daemon), player_(player)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0); // show each line at once, even through a pipe
    clock_.start();
    QObject::connect(&daemon, &Daemon::logLine, &receiver_, [this](const QString &text) { print("kado-bt", text); });
    QObject::connect(&player, &Player::requested, &receiver_,
                     [this](const PlayerRequest &request) { log("player", "is told " + request.target); });
}

void DemoReport::log(const char *who, const QString &text) const
{
    daemon_.collectLog();
    print(who, text);
}

void DemoReport::print(const char *who, const QString &text) const
{
    std::printf("%8.3f %-7s | %s\n", static_cast<double>(clock_.elapsed()) / 1000, who, qPrintable(text));
}

bool DemoReport::expect(bool condition, const QString &fault)
{
    if (!condition && fault_.isEmpty())
        fault_ = fault;
    return condition;
}

bool DemoReport::awaitRequest(const QString &request)
{
    const QList<PlayerRequest> &requests = player_.requests();
    if (!expect(waitFor([&] { return requests.size() > awaitedRequests_; }),
                QStringLiteral("the player was not told ") + request))
        return false;
    const QString actual = QUrl::fromPercentEncoding(requests.at(awaitedRequests_++).target.toUtf8());
    return expect(actual == request, QStringLiteral("the player was told %1, not %2").arg(actual, request));
}

bool DemoReport::awaitStatus(const char *type, bool connected, const QString &name, bool streaming)
{
    const auto text = [](bool value) { return QLatin1String(value ? "true" : "false"); };
    return awaitRequest(QStringLiteral("/BTPropertyChange?type=%1?adapter=true&connected=%2&name=%3&streaming=%4")
                            .arg(QLatin1String(type), text(connected), name, text(streaming)));
}

bool DemoReport::selectBluetooth(Control &control, int sampleRate, const QString &phone)
{
    log("board", QStringLiteral("calls SelectBluetooth of the control interface"));
    return expect(control.call(QStringLiteral("SelectBluetooth")).type() == QDBusMessage::ReplyMessage,
                  QStringLiteral("SelectBluetooth failed"))
        && awaitRequest(QStringLiteral("/Play?url=Capture:bluez:bluetooth:pcm/%1/16/2&name=%2")
                            .arg(QString::number(sampleRate), phone));
}

bool DemoReport::expectNoMoreRequests()
{
    return expect(player_.requests().size() == awaitedRequests_,
                  QStringLiteral("the player received more requests than expected"));
}

void DemoReport::listRequests() const
{
    std::printf("Requests to the player:\n");
    for (const PlayerRequest &request : player_.requests())
        std::printf("    %s\n", qPrintable(request.target));
}

int DemoReport::finish() const
{
    if (failed()) {
        std::printf("FAILED: %s.\n", qPrintable(fault_));
        return EXIT_FAILURE;
    }
    std::printf("All checks passed.\n");
    return EXIT_SUCCESS;
}

} // namespace sim

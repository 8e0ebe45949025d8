// SPDX-License-Identifier: MIT
// The requests to the player: their content, and players that answer wrongly, late or never.

#include "player/playerrequests.h"
#include "sim/player.h"
#include "waituntil.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>

#include <algorithm>

namespace {

/// A player, and the daemon's sender of requests.
struct Requests {
    Requests() { served = player.serve(); }

    /// Sends `requests` requests without running the event loop. Each has a different sampling rate.
    void make(int requests)
    {
        for (int i = 0; i < requests; ++i) {
            sender.sendPlay(QStringLiteral("pcm"), made, 16, 2, {});
            targets << QStringLiteral("/Play?url=Capture:bluez:bluetooth:pcm/%1/16/2&name=").arg(made++);
        }
    }

    sim::Player player;
    bool served = false;
    QNetworkAccessManager network;
    PlayerRequests sender{network};
    int made = 0;
    QStringList targets; ///< of all requests sent by make()
};

} // namespace

class RequestsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void anyNameIsOneRequest();
    void playersGetEveryEventSoon();
    void silentPlayerGetsTheLatestState();
    void endlessAnswersTimeOut();
};

void RequestsTest::anyNameIsOneRequest()
{
    const struct {
        QString name;
        const char *sent;
    } names[] = {
        {QStringLiteral("Bob & Co"), "Bob%20&%20Co&streaming=true"},
        {QString::fromUtf8("K\xC3\xBC"), "K%C3%BC&streaming=true"},
        {QStringLiteral("\r\nHost: x\r\n\r\n"), "%0D%0AHost:%20x%0D%0A%0D%0A&streaming=true"},
        {QStringLiteral("a") + QChar(0) + QLatin1Char('b'), "a%00b&streaming=true"},
        {QStringLiteral("\"Bob\""), "%22Bob%22&streaming=true"},
        {QStringLiteral("100 % Bob %4"), "100%20%25%20Bob%20true&streaming=true"}, // QString::arg() replaces "%4"
        {QStringLiteral("%1x"), "truex&streaming=%254"},
        {QStringLiteral("Bob") + QChar(0xD83C), "Bob%ED%A0%BC&streaming=true"},
        {QChar(0xDFA7) + QStringLiteral("Bob"), "%ED%BE%A7Bob&streaming=true"},
    };
    Requests requests;
    QVERIFY(requests.served);
    for (const auto &name : names) {
        requests.player.clearRequests();
        requests.sender.sendBTPropertyChange(QStringLiteral("USB"), true, true, name.name, true);
        requests.make(1);
        WAIT_UNTIL(requests.player.requests().size() == 2);
        QCOMPARE(requests.player.requests().constFirst().head.split('\r').constFirst(),
                 QByteArray("GET /BTPropertyChange?type=USB?adapter=true&connected=true&name=") + name.sent
                     + " HTTP/1.1");
        QCOMPARE(requests.player.targets().constLast(), requests.targets.constLast());
    }
}

void RequestsTest::playersGetEveryEventSoon()
{
    using Behaviour = sim::Player::Behaviour;
    constexpr int Events = 12;
    constexpr int SoonMs = 1500; // each wait for a missing answer takes 250 ms
    for (const Behaviour behaviour :
         {Behaviour::Answer, Behaviour::KeepOpen, Behaviour::NoContent, Behaviour::Chunked, Behaviour::Refuse}) {
        Requests requests;
        QVERIFY(requests.served);
        requests.player.setBehaviour(behaviour);
        QElapsedTimer clock;
        clock.start();
        requests.make(Events);
        WAIT_UNTIL(requests.player.requests().size() == Events);
        QCOMPARE(requests.player.targets(), requests.targets);
        QVERIFY2(clock.elapsed() <= SoonMs, qPrintable(QString::number(clock.elapsed())));
    }
}

/// A silent player receives one request per connection, in order. Of the queued requests the latest are kept.
void RequestsTest::silentPlayerGetsTheLatestState()
{
    constexpr int Connections = 5;
    constexpr int Kept = 64;
    Requests requests;
    QVERIFY(requests.served);
    requests.player.setBehaviour(sim::Player::Behaviour::NeverAnswer);
    requests.make(Connections);
    WAIT_UNTIL(requests.player.targets() == requests.targets);
    requests.make(10 * Kept);

    requests.player.stopServing(); // the player is restarted
    requests.player.setBehaviour(sim::Player::Behaviour::Answer);
    requests.player.clearRequests();
    QVERIFY(requests.player.serve());
    const QStringList kept = requests.targets.mid(requests.targets.size() - Kept);
    const auto isHeard = [&](const QString &target) { return requests.player.targets().contains(target); };
    WAIT_UNTIL(std::all_of(kept.begin(), kept.end(), isHeard));
    for (const QString &target :
         requests.player.targets()) // in any order, because requests may overtake each other on a busy machine
        QVERIFY2(kept.contains(target) || requests.targets.mid(0, Connections).contains(target), qPrintable(target));
}

/// Each endless answer occupies one of a few connections until its timeout.
void RequestsTest::endlessAnswersTimeOut()
{
    Requests requests;
    QVERIFY(requests.served);
    requests.player.setBehaviour(sim::Player::Behaviour::Endless);
    requests.make(10);
    QVERIFY(sim::waitFor([&] { return requests.player.requests().size() > 5; }, 15'000));
}

QTEST_GUILESS_MAIN(RequestsTest)
#include "tst_requests.moc"

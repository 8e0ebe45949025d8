// SPDX-License-Identifier: MIT
// The requests to the player: what stands in them, and players that answer in any way, late or not at all.

#include "player/playerrequests.h"
#include "sim/player.h"
#include "waituntil.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>

#include <algorithm>

namespace {

/// A player, and the daemon's side of its control service.
struct Requests {
    Requests() { served = player.serve(); }

    /// Makes so many requests in one turn of the event loop; each is told from the others by its sampling rate.
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
    QStringList targets; ///< of all that were made
};

} // namespace

class RequestsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void anyNameIsOneRequest();
    void playersHearEveryEventSoon();
    void silentPlayerHearsTheLatestState();
    void answersWithoutEndAreGivenUp();
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
        {QStringLiteral("100 % Bob %4"), "100%20%25%20Bob%20true&streaming=true"}, // "%4" takes effect
        {QStringLiteral("%1x"), "truex&streaming=%254"},
        {QStringLiteral("Bob") + QChar(0xD83C), "Bob%ED%A0%BC&streaming=true"},
        {QChar(0xDFA7) + QStringLiteral("Bob"), "%ED%BE%A7Bob&streaming=true"},
    };
    Requests requests;
    QVERIFY(requests.served);
    for (const auto &name : names) {
        requests.player.forgetRequests();
        requests.sender.sendBTPropertyChange(QStringLiteral("USB"), true, true, name.name, true);
        requests.make(1);
        WAIT_UNTIL(requests.player.requests().size() == 2);
        QCOMPARE(requests.player.requests().constFirst().head.split('\r').constFirst(),
                 QByteArray("GET /BTPropertyChange?type=USB?adapter=true&connected=true&name=") + name.sent
                     + " HTTP/1.1");
        QCOMPARE(requests.player.targets().constLast(), requests.targets.constLast());
    }
}

void RequestsTest::playersHearEveryEventSoon()
{
    using Behaviour = sim::Player::Behaviour;
    constexpr int Events = 12;
    constexpr int SoonMs = 1500; // each one that is waited for in vain takes 250 ms
    for (const Behaviour behaviour :
         {Behaviour::Answer, Behaviour::KeepOpen, Behaviour::NoContent, Behaviour::Chunked, Behaviour::Refuse}) {
        Requests requests;
        QVERIFY(requests.served);
        requests.player.behave(behaviour);
        QElapsedTimer clock;
        clock.start();
        requests.make(Events);
        WAIT_UNTIL(requests.player.requests().size() == Events);
        QCOMPARE(requests.player.targets(), requests.targets);
        QVERIFY2(clock.elapsed() <= SoonMs, qPrintable(QString::number(clock.elapsed())));
    }
}

/// It hears as many as have a connection each, in their order. Of those that wait the latest are kept.
void RequestsTest::silentPlayerHearsTheLatestState()
{
    constexpr int Connections = 5;
    constexpr int Kept = 64;
    Requests requests;
    QVERIFY(requests.served);
    requests.player.behave(sim::Player::Behaviour::NeverAnswer);
    requests.make(Connections);
    WAIT_UNTIL(requests.player.targets() == requests.targets);
    requests.make(10 * Kept);

    requests.player.stopServing(); // it is started again
    requests.player.behave(sim::Player::Behaviour::Answer);
    requests.player.forgetRequests();
    QVERIFY(requests.player.serve());
    const QStringList kept = requests.targets.mid(requests.targets.size() - Kept);
    const auto isHeard = [&](const QString &target) { return requests.player.targets().contains(target); };
    WAIT_UNTIL(std::all_of(kept.begin(), kept.end(), isHeard));
    for (const QString &target : requests.player.targets()) // on a busy machine one overtakes another
        QVERIFY2(kept.contains(target) || requests.targets.mid(0, Connections).contains(target), qPrintable(target));
}

/// Each holds a connection, and no more than a few are given out.
void RequestsTest::answersWithoutEndAreGivenUp()
{
    Requests requests;
    QVERIFY(requests.served);
    requests.player.behave(sim::Player::Behaviour::Endless);
    requests.make(10);
    QVERIFY(sim::waitFor([&] { return requests.player.requests().size() > 5; }, 15'000));
}

QTEST_GUILESS_MAIN(RequestsTest)
#include "tst_requests.moc"

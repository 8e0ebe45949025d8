// The requests to the player: what stands in them, and players that answer in any way, late or not at all.

#include "player/playerrequests.h"
#include "streamingboard.h"

#include <QNetworkAccessManager>

using namespace boardtest;

class RequestsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void urls();
    void anyNameIsOneRequest_data();
    void anyNameIsOneRequest();
    void playersHearEveryEventSoon_data();
    void playersHearEveryEventSoon();
    void playerThatIsDown();
    void answersOfThePlayerAreLogged();
    void silentPlayerHearsTheLastStateLast();
    void answersWithoutEndAreGivenUp();
};

void RequestsTest::urls()
{
    const auto play = [](const char *name) {
        return PlayerRequests::playUrl(QStringLiteral("pcm"), 48000, 16, 2, QString::fromUtf8(name));
    };
    QCOMPARE(
        play("Kitchen"),
        QUrl(QStringLiteral("http://127.0.0.1:11000/Play?url=Capture:bluez:bluetooth:pcm/48000/16/2&name=Kitchen")));
    const auto change = [](const char *name) {
        return PlayerRequests::propertyChangeUrl(QStringLiteral("USB"), true, true, QString::fromUtf8(name), false)
            .query(QUrl::FullyEncoded);
    };
    QCOMPARE(change("Anna"), QStringLiteral("type=USB?adapter=true&connected=true&name=Anna&streaming=false"));
    QCOMPARE(change("Bob & Co"),
             QStringLiteral("type=USB?adapter=true&connected=true&name=Bob%20&%20Co&streaming=false"));
    QCOMPARE(change("%1x"), QStringLiteral("type=USB?adapter=true&connected=true&name=falsex&streaming=%254"));
    QCOMPARE(change("K\xC3\xBC"), QStringLiteral("type=USB?adapter=true&connected=true&name=K%C3%BC&streaming=false"));
}

void RequestsTest::anyNameIsOneRequest_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("sent");
    const auto row = [](const QString &name, const char *sent) { QTest::newRow(sent) << name << QByteArray(sent); };
    row(QStringLiteral("\r\nHost: x\r\n\r\n"), "%0D%0AHost:%20x%0D%0A%0D%0A");
    row(QStringLiteral("a") + QChar(0) + QLatin1Char('b'), "a%00b");
    row(QStringLiteral("\"Bob\""), "%22Bob%22");
    row(QStringLiteral("100 % Bob %4"), "100%20%25%20Bob%20%254");
    row(QStringLiteral("Bob") + QChar(0xD83C), "Bob%ED%A0%BC");
    row(QChar(0xDFA7) + QStringLiteral("Bob"), "%ED%BE%A7Bob");
}

void RequestsTest::anyNameIsOneRequest()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, sent);
    sim::Player player;
    QVERIFY(player.serve());
    QNetworkAccessManager theNetworkManager;
    PlayerRequests requests(theNetworkManager);
    requests.sendPlay(QStringLiteral("pcm"), 44100, 16, 2, name);
    requests.sendPlay(QStringLiteral("pcm"), 44100, 16, 2, QString());
    WAIT_UNTIL(player.requests().size() == 2);
    const QByteArray target = "/Play?url=Capture:bluez:bluetooth:pcm/44100/16/2&name=";
    QCOMPARE(player.requests().constFirst().head.split('\r').constFirst(), "GET " + target + sent + " HTTP/1.1");
    QCOMPARE(player.targets().constLast(), QString::fromLatin1(target));
}

void RequestsTest::playersHearEveryEventSoon_data()
{
    using Behaviour = sim::Player::Behaviour;
    QTest::addColumn<int>("behaviour");
    QTest::newRow("closes") << static_cast<int>(Behaviour::Answer);
    QTest::newRow("keeps the connection open") << static_cast<int>(Behaviour::KeepOpen);
    QTest::newRow("answers 204") << static_cast<int>(Behaviour::NoContent);
    QTest::newRow("answers in chunks") << static_cast<int>(Behaviour::Chunked);
}

void RequestsTest::playersHearEveryEventSoon()
{
    QFETCH(int, behaviour);
    constexpr int Events = 12;
    constexpr int SoonMs = 500;
    ConfiguredBoard b;
    QVERIFY(b.ready);
    b.board.player.behave(static_cast<sim::Player::Behaviour>(behaviour));
    b.board.player.forgetRequests();

    QVERIFY(b.board.daemon.hold());
    QStringList expected;
    for (int i = 0; i < Events; ++i) {
        const bool active = i % 2 == 0;
        b.board.bluez.emitPropertiesChanged(b.phone.transportPath(), QStringLiteral("org.bluez.MediaTransport1"),
                                            {{QStringLiteral("State"), active ? "active" : "idle"}});
        expected << notification(true, true, "Anna", active);
    }
    QElapsedTimer clock;
    clock.start();
    QVERIFY(b.board.daemon.letGo());
    WAIT_UNTIL(b.board.player.requests().size() == Events);
    const qint64 ms = clock.elapsed();
    QCOMPARE(b.board.player.targets(), expected);
    qInfo("%d requests in %lld ms", Events, ms);
    QVERIFY(ms <= SoonMs);
}

void RequestsTest::playerThatIsDown()
{
    sim::Board board;
    board.player.stopServing();
    board.daemon.start(board.bus.address(),
                       {QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")});
    const QString prefix = QStringLiteral("AdapterManager::finished "
                                          "\"http://127.0.0.1:11000/BTPropertyChange?type=USB?adapter=true&"
                                          "connected=false&name=&streaming=false\" ");
    const auto finishedWith = [&](const QString &ending) {
        for (const QString &line : board.daemon.logTexts()) {
            if (line.startsWith(prefix) && line.mid(prefix.size()).startsWith(ending))
                return true;
        }
        return false;
    };
    WAIT_UNTIL(finishedWith(QStringLiteral("\"Connection refused\"")));
    QVERIFY(board.player.serve());
    board.bluez.removeObject(Hci0, {QStringLiteral("org.bluez.Media1")});
    WAIT_UNTIL(finishedWith(QStringLiteral("OK")));
}

void RequestsTest::answersOfThePlayerAreLogged()
{
    using Behaviour = sim::Player::Behaviour;
    sim::Board board;
    QVERIFY(board.startDaemon({QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")}));
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    const struct {
        Behaviour behaviour;
        const char *ending;
    } answers[] = {
        {Behaviour::Refuse, "server replied: Internal Server Error\" "},
        {Behaviour::Garbage, "\"Connection closed\" "},
        {Behaviour::Answer, "OK "},
    };
    for (const auto &answer : answers) {
        board.player.behave(answer.behaviour);
        const auto lines = [&] {
            return board.daemon.logTexts()
                .filter(QStringLiteral("AdapterManager::finished"))
                .filter(QLatin1String(answer.ending))
                .size();
        };
        const auto before = lines();
        phone.connect();
        WAIT_UNTIL(lines() == before + 1);
        phone.disconnect();
        WAIT_UNTIL(lines() == before + 2);
    }
    const QByteArray request =
        "GET /BTPropertyChange?type=USB?adapter=true&connected=false&name=&streaming=false HTTP/1.1"
        "\r\nHost: 127.0.0.1:11000\r\n";
    // From Qt 6.8 on header names are in lower case, which means the same.
    QCOMPARE(board.player.requests().last().head.left(request.size()).toLower(), request.toLower());
}

void RequestsTest::silentPlayerHearsTheLastStateLast()
{
    sim::Board board;
    board.player.behave(sim::Player::Behaviour::NeverAnswer);
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    QStringList expected{notification(true, false, "", false)};
    for (int round = 0; round < 2; ++round) {
        phone.connect();
        expected << notification(true, true, "Anna", false);
        WAIT_UNTIL(board.player.targets().size() == expected.size());
        if (round == 1)
            break;
        phone.disconnect();
        expected << notification(true, false, "", false);
    }
    QCOMPARE(board.player.targets(), expected);
}

/// Each holds a connection, and no more than a few are given out.
void RequestsTest::answersWithoutEndAreGivenUp()
{
    sim::Board board;
    board.player.behave(sim::Player::Behaviour::Endless);
    QVERIFY(board.startDaemon({QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")}));
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Anna"));
    for (int i = 0; i < 10; ++i) {
        phone.connect();
        phone.disconnect();
    }
    QVERIFY(sim::waitFor([&] { return board.player.requests().size() > 5; }, 15'000));
    QVERIFY(!board.daemon.logTexts().filter(QStringLiteral("\"Operation canceled\"")).isEmpty());
}

QTEST_GUILESS_MAIN(RequestsTest)
#include "tst_requests.moc"

// What may come over the bus: values of the wrong type, floods, names and messages without measure, and its end.

#include "streamingboard.h"

#include <QDBusPendingCall>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>

using namespace boardtest;

namespace {

const QString TransportInterface = QStringLiteral("org.bluez.MediaTransport1");
const QStringList Traced{QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")};

QVariant variant(const QVariant &value)
{
    return QVariant::fromValue(QDBusVariant(value));
}

/// Values that are neither a Connected nor a State.
QVariantList wrongValues()
{
    QVariant deep = 1;
    for (int i = 0; i < 20; ++i)
        deep = variant(deep);
    return {1,
            0.5,
            qint64{-1},
            QStringList{QStringLiteral("pending"), QStringLiteral("active")},
            QByteArray("pending"),
            QVariantMap{{QStringLiteral("State"), QStringLiteral("pending")}},
            QVariant::fromValue(QDBusObjectPath(QStringLiteral("/pending"))),
            QVariant::fromValue(QDBusUnixFileDescriptor(0)),
            deep,
            QVariantList{1, QStringLiteral("x"), deep}};
}

/// The part of a notification that is the phone's name, decoded.
QString nameIn(const QString &target)
{
    const QString begin = QStringLiteral("&name=");
    const auto from = target.indexOf(begin) + begin.size();
    const auto to = target.indexOf(QStringLiteral("&streaming="));
    return QString::fromUtf8(QByteArray::fromPercentEncoding(target.mid(from, to - from).toLatin1()));
}

} // namespace

class BusFaultTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void valuesOfTheWrongType();
    void signalsOfTheWrongShape();
    void phoneNamesOfEveryKind_data();
    void phoneNamesOfEveryKind();
    void floodsPassBy();
    void floodsSlowToHandlePassBy();
    void propertiesWithoutMeasure();
    void thousandsOfDevices();
    void busThatGoesAway();
};

void BusFaultTest::valuesOfTheWrongType()
{
    ConfiguredBoard b(Traced);
    QVERIFY(b.ready && b.startHeard());
    const int descriptors = settledDescriptors(b.board.daemon);
    const QList<QByteArray> sent = packets(0.5);
    const auto half = sent.size() / 2;
    QVERIFY(b.send(sent.mid(0, half)));
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", true));
    b.board.player.forgetRequests();
    const QVariantList wrong = wrongValues();
    for (const QVariant &value : wrong) {
        b.board.bluez.emitPropertiesChanged(b.phone.transportPath(), TransportInterface,
                                            {{QStringLiteral("State"), value}});
        b.board.bluez.emitPropertiesChanged(PhonePath, Device, {{QStringLiteral("Connected"), value}});
        b.board.bluez.addObject(Hci0 + QStringLiteral("/dev_X"), {{Device, {{QStringLiteral("Connected"), value}}}});
    }
    b.board.bluez.emitPropertiesChanged(PhonePath, Device, {{QStringLiteral("Connected"), QStringLiteral("false")}});
    QCOMPARE(b.board.control.property(QStringLiteral("Streaming")), QVariant(true));
    QCOMPARE(b.board.control.property(QStringLiteral("Connected")), QVariant(true));
    QCOMPARE(b.board.player.targets(), QStringList());
    QVERIFY(b.send(sent.mid(half)));
    QVERIFY(b.hears(sim::decodeSbc(sent)));
    QVERIFY(settledDescriptors(b.board.daemon) <= descriptors + sim::SparePlayerSockets);
}

void BusFaultTest::signalsOfTheWrongShape()
{
    ConfiguredBoard b(Traced);
    QVERIFY(b.ready && b.phone.start(Mtu) && b.active());
    WAIT_UNTIL(b.board.player.targets().last() == notification(true, true, "Anna", true));
    b.board.player.forgetRequests();
    const QVariant path = QVariant::fromValue(QDBusObjectPath(Hci0));
    const QList<QVariantList> shapes{
        {},
        {Hci0},
        {path},
        {7, 7, 7},
        {path, QVariantMap{{Device, QStringLiteral("no properties")}}},
        {QVariantMap(), Device, QStringList()},
        {Device, QStringList(), QVariantMap()},
        {TransportInterface, QVariantMap(), QVariantMap()},
    };
    const struct {
        QString path;
        QString interface;
        const char *member;
    } signalsOfBluez[] = {
        {QStringLiteral("/"), QStringLiteral("org.freedesktop.DBus.ObjectManager"), "InterfacesAdded"},
        {QStringLiteral("/"), QStringLiteral("org.freedesktop.DBus.ObjectManager"), "InterfacesRemoved"},
        {PhonePath, QStringLiteral("org.freedesktop.DBus.Properties"), "PropertiesChanged"},
        {b.phone.transportPath(), QStringLiteral("org.freedesktop.DBus.Properties"), "PropertiesChanged"},
    };
    for (const auto &signal : signalsOfBluez) {
        for (const QVariantList &shape : shapes) {
            QDBusMessage message = QDBusMessage::createSignal(signal.path, signal.interface,
                                                              QLatin1String(signal.member));
            message.setArguments(shape);
            b.board.bluez.connection().send(message);
        }
    }
    QCOMPARE(b.board.control.property(QStringLiteral("AdapterPresent")), QVariant(true));
    QCOMPARE(b.board.control.property(QStringLiteral("Streaming")), QVariant(true));
    QCOMPARE(b.board.player.targets(), QStringList());
    QVERIFY(b.playsAnother());
}

void BusFaultTest::phoneNamesOfEveryKind_data()
{
    QTest::addColumn<QString>("alias");
    // The one character that ends a request's name is left out, and a digit behind "%", which means something.
    QString bytes;
    for (char16_t code = 1; code < 0x100; ++code) {
        if (code != u'#')
            bytes += QChar(code);
    }
    QTest::newRow("every byte") << bytes;
    QTest::newRow("at the ends of Unicode")
        << QString::fromUtf8("\xEF\xBF\xBD \xEF\xBF\xBE \xEF\xBF\xBF \xF0\x9F\x8E\xA7 \xF4\x8F\xBF\xBD ")
            + QChar(0x202E);
    QTest::newRow("as long as a radio may have it") << QString(248, QChar(0x20AC));
    QTest::newRow("6 MB in a request") << QString(1'000'000, QChar(0x00FC));
    QTest::newRow("nothing but line ends") << QStringLiteral("\r\n\r\nGET / HTTP/1.1\r\n\r\n");
}

void BusFaultTest::phoneNamesOfEveryKind()
{
    QFETCH(QString, alias);
    sim::Board board;
    QVERIFY(board.startDaemon());
    sim::Phone phone(board.bluez, PhonePath, alias);
    phone.connect();
    WAIT_UNTIL(board.player.targets().size() == 2);
    const QString target = board.player.targets().last();
    QVERIFY2(nameIn(target) == alias, qPrintable(target.left(2000)));
    for (const QChar c : target)
        QVERIFY(c > QLatin1Char(' ') && c.unicode() < 0x7F);
    QCOMPARE(board.control.property(QStringLiteral("Name")), QVariant(alias));
    QVERIFY(phone.authorize());
    phone.disconnect();
    WAIT_UNTIL(board.player.targets().last() == notification(true, false, "", false));
}

void BusFaultTest::floodsPassBy()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    const int descriptors = settledDescriptors(b.board.daemon);
    [[maybe_unused]] const int resident = b.board.daemon.residentKib();
    const QList<QByteArray> sent = packets(5);
    constexpr int Each = 20;
    const auto device = [](int i) { return Hci0 + QStringLiteral("/dev_%1").arg(i); };
    const QDBusConnection bus = b.board.bluez.connection();
    const QString service = b.board.bluez.endpoints().constFirst().service;
    const auto toTheAgent = [&](const char *member, const QVariantList &arguments) {
        QDBusMessage call = QDBusMessage::createMethodCall(service, b.board.bluez.agentPath(),
                                                           QStringLiteral("org.bluez.Agent1"), QLatin1String(member));
        call.setArguments(arguments);
        bus.send(call); // nobody waits for the answer
    };
    int i = 0;
    for (const QByteArray &packet : sent) {
        QVERIFY(b.phone.send(packet));
        for (const int end = i + Each; i < end; ++i) {
            const QVariant path = QVariant::fromValue(QDBusObjectPath(device(i)));
            b.board.bluez.emitPropertiesChanged(device(i), Device, {{QStringLiteral("RSSI"), QVariant(i)}});
            b.board.bluez.emitPropertiesChanged(device(i), Device, {{QStringLiteral("Connected"), i % 2 == 0}});
            toTheAgent("RequestAuthorization", {path});
            toTheAgent("AuthorizeService", {path, QStringLiteral("x")});
            bus.send(QDBusMessage::createMethodCall(QStringLiteral("org.kadobt"), QStringLiteral("/kadobt"),
                                                    QStringLiteral("org.kadobt.commands"),
                                                    QStringLiteral("SelectBluetooth")));
        }
    }
    QVERIFY(sim::waitFor([&] { return b.board.player.heard().size() >= sim::decodeSbc(sent).size(); }, 60'000));
    QVERIFY(b.board.player.heard() == sim::decodeSbc(sent));
    // Sent behind all of it; the log may have had to leave lines out.
    const auto last = QDBusMessage::createMethodCall(QStringLiteral("org.kadobt"), QStringLiteral("/kadobt"),
                                                     QStringLiteral("org.kadobt.commands"),
                                                     QStringLiteral("SelectBluetooth"));
    const QDBusPendingCall answer = bus.asyncCall(last, 60'000);
    QVERIFY(sim::waitFor([&] { return answer.isFinished(); }, 60'000) && !answer.isError());
    qInfo("%d messages; resident %d -> %d KiB", i * 5, resident, b.board.daemon.residentKib());
    QCOMPARE(b.board.control.property(QStringLiteral("Name")), QVariant(QStringLiteral("Anna")));
    QVERIFY(sim::waitFor([&] { return b.board.daemon.openDescriptors() <= descriptors + sim::SparePlayerSockets; },
                         20'000));
    QVERIFY(b.playsAnother());
}

void BusFaultTest::floodsSlowToHandlePassBy()
{
    ConfiguredBoard b(Traced, QStringLiteral("2>/dev/null"));
    QVERIFY(b.ready && b.startHeard());
    QVariantMap many;
    for (int i = 0; i < 200; ++i)
        many.insert(QStringLiteral("Property%1").arg(i), QByteArray(8, 'x'));
    // 90 MB, more than libdbus reads while none of it is handled.
    constexpr int DrainMs = 150'000; // an emulated board takes its time
    QVERIFY(b.board.daemon.hold());
    for (int i = 0; i < 14'000; ++i)
        b.board.bluez.emitPropertiesChanged(PhonePath, Device, many);
    const auto last = QDBusMessage::createMethodCall(QStringLiteral("org.kadobt"), QStringLiteral("/kadobt"),
                                                     QStringLiteral("org.kadobt.commands"),
                                                     QStringLiteral("SelectBluetooth"));
    const QDBusPendingCall answer = b.board.bluez.connection().asyncCall(last, DrainMs);
    QVERIFY(b.board.daemon.letGo());
    QVERIFY(sim::waitFor([&] { return answer.isFinished(); }, DrainMs) && !answer.isError());
    QVERIFY(b.playsAnother());
}

void BusFaultTest::propertiesWithoutMeasure()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.phone.start(Mtu) && b.active());
    const QString huge(8 * 1024 * 1024, QLatin1Char('x'));
    b.board.bluez.emitPropertiesChanged(PhonePath, Device, {{QStringLiteral("Alias"), huge}});
    b.board.bluez.emitPropertiesChanged(PhonePath, huge.left(200), {{huge.left(100'000), huge}});
    b.board.bluez.emitPropertiesChanged(b.phone.transportPath(), TransportInterface,
                                        {{QStringLiteral("Configuration"), huge.toLatin1()}});
    QVariantMapMap interfaces;
    for (int i = 0; i < 10'000; ++i)
        interfaces.insert(QStringLiteral("org.bluez.Interface%1").arg(i), {{QStringLiteral("Connected"), true}});
    b.board.bluez.addObject(Hci0 + QString(1000, QLatin1Char('/')).replace(QLatin1Char('/'), QStringLiteral("/a")),
                            interfaces);
    b.board.bluez.addObject(QStringLiteral("/"), {{Device, {{QStringLiteral("Connected"), true}}}},
                            sim::FakeBluez::Announce::Signal);
    const QDBusMessage configured = b.board.bluez.callEndpoint(
        2, QStringLiteral("SetConfiguration"),
        {QVariant::fromValue(QDBusObjectPath(QStringLiteral("/x"))),
         QVariantMap{{QStringLiteral("Configuration"), QByteArray(1024 * 1024, '\x7F')}}});
    QCOMPARE(configured.type(), QDBusMessage::ReplyMessage);
    b.board.bluez.callEndpoint(0, QStringLiteral("SelectConfiguration"), {QByteArray(1024 * 1024, '\xFF')});
    QCOMPARE(b.board.control.property(QStringLiteral("Name")), QVariant(QStringLiteral("Anna")));
    const QVariantList path{QVariant::fromValue(QDBusObjectPath(QStringLiteral("/x")))};
    b.board.bluez.callEndpoint(2, QStringLiteral("ClearConfiguration"), path);
    QVERIFY(b.playsAnother());
}

void BusFaultTest::thousandsOfDevices()
{
    sim::Board board;
    for (int i = 0; i < 5000; ++i) {
        board.bluez.addObject(Hci0 + QStringLiteral("/dev_%1").arg(i),
                              {{Device, {{QStringLiteral("Connected"), false}, {QStringLiteral("Alias"), QString()}}}},
                              sim::FakeBluez::Announce::Quietly);
    }
    sim::Phone phone(board.bluez, Hci0 + QStringLiteral("/dev_zzz"), QStringLiteral("Anna"));
    phone.connect();
    QVERIFY(board.startDaemon());
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Anna", false));
    QVERIFY(phone.authorize());
}

void BusFaultTest::busThatGoesAway()
{
    ConfiguredBoard b;
    QVERIFY(b.ready && b.startHeard());
    b.board.bus.kill();
    WAIT_UNTIL(b.board.daemon.process().state() == QProcess::NotRunning);
    QCOMPARE(b.board.daemon.process().exitStatus(), QProcess::CrashExit);
    QCOMPARE(b.board.daemon.logTexts().last(), QStringLiteral("Fatal: The system bus is gone"));
}

QTEST_GUILESS_MAIN(BusFaultTest)
#include "tst_faultbus.moc"

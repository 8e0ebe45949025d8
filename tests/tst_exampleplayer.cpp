// SPDX-License-Identifier: MIT
// The example player, in place of the board's own: what the documentation tells the author of a player works.

#include "streamingboard.h"

#include <QProcessEnvironment>

#include <algorithm>

using namespace boardtest;

class ExamplePlayerTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void hearsWhatThePhonePlays();
};

void ExamplePlayerTest::hearsWhatThePhonePlays()
{
    sim::Board board;
    QVERIFY(board.startDaemon(Traced));
    sim::Phone phone(board.bluez, PhonePath, QStringLiteral("Bob & Co"));
    phone.connect();
    WAIT_UNTIL(board.control.property(QStringLiteral("Connected")).toBool());
    QVERIFY(phone.authorize() && phone.configure(sim::SbcFormat{}) && phone.start());
    // The example comes late, and is not told again of what was told before.
    WAIT_UNTIL(board.player.targets().last() == notification(true, true, "Bob%20&%20Co", true));
    const auto finished = [&] { return board.daemon.logTexts().filter(QStringLiteral("AdapterManager::finished")); };
    WAIT_UNTIL(finished().size() == board.player.requests().size()); // one without its answer would be repeated
    board.player.stopServing();

    QByteArray heard;
    QByteArray said;
    sim::ChildProcess example;
    QObject::connect(&example, &QProcess::readyReadStandardOutput, [&] { heard += example.readAllStandardOutput(); });
    QObject::connect(&example, &QProcess::readyReadStandardError, [&] { said += example.readAllStandardError(); });
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), board.bus.address());
    example.setProcessEnvironment(environment);
    example.start(QStringLiteral(KADO_EXAMPLE_PLAYER), {QStringLiteral("cat")});
    const QByteArray plays = "plays 44100 Hz, 16 bits, 2 channels";

    const QList<QByteArray> sent = packets(1);
    const auto send = [&] {
        return std::all_of(sent.begin(), sent.end(), [&](const QByteArray &packet) { return phone.send(packet); });
    };
    QVERIFY2(sim::waitFor([&] { return said.contains(plays); }), said.constData());
    QVERIFY(send());
    const QByteArray first = sim::decodeSbc(sent);
    WAIT_UNTIL(heard == first);

    // The phone pauses and goes on: it is told, and asks to be asked again.
    phone.suspend();
    QVERIFY2(sim::waitFor([&] { return said.contains("connected: true, name: Bob & Co, streaming: false"); }),
             said.constData());
    said.clear();
    QVERIFY(phone.start());
    QVERIFY2(sim::waitFor([&] { return said.contains(plays); }), said.constData());
    QVERIFY(said.contains("connected: true, name: Bob & Co, streaming: true"));
    QVERIFY(send());
    const QByteArray both = sim::decodeSbc(sent + sent); // one decoder for both
    WAIT_UNTIL(heard == both);
}

QTEST_GUILESS_MAIN(ExamplePlayerTest)
#include "tst_exampleplayer.moc"

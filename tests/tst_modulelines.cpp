// The module's lines without a port: bytes in, lines out; lines in, commands and state out.

#include "module/linereader.h"
#include "module/moduleprotocol.h"

#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QTest>

class ModuleLinesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false); }

    void linesAreCut();
    void endlessLineIsDropped();
    void replies_data();
    void replies();
    void chainEndsInSaveOrStatus();
    void whatIsNotKeptIsNotSavedAgain();
    void namesThatACommandCannotHold();
    void phoneEvents();
    void phoneName();
    void takesAnyBytes();
};

void ModuleLinesTest::linesAreCut()
{
    LineReader reader;
    QCOMPARE(reader.feed("Rea"), QStringList());
    QCOMPARE(reader.feed("dy\r"), QStringList(QStringLiteral("Ready")));
    QCOMPARE(reader.feed("\nA\nB\r\nC"), QStringList({QString(), QStringLiteral("A"), QStringLiteral("B"), QString()}));
    QCOMPARE(reader.feed(QByteArray("\xFC\n\0X\n", 5)), QStringList(QStringLiteral("C\u00FC")));
    QCOMPARE(reader.feed("D\n"), QStringList(QStringLiteral("D")));
    QCOMPARE(reader.feed({}), QStringList());
}

void ModuleLinesTest::endlessLineIsDropped()
{
    LineReader reader;
    for (int i = 0; i < 100; ++i)
        QCOMPARE(reader.feed(QByteArray(1000, 'x')), QStringList());
    QCOMPARE(reader.feed("x\nReady\n"), QStringList(QStringLiteral("Ready")));
    const QString longest(LineReader::MaxLineLength, QLatin1Char('y'));
    QCOMPARE(reader.feed(longest.toLatin1() + '\r'), QStringList(longest));
}

void ModuleLinesTest::replies_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("command");
    const auto row = [](const char *line, const char *command) {
        QTest::newRow(line) << QString::fromUtf8(line) << QByteArray(command);
    };
    row("Ready", "get name\r");
    row("Ready now", "get name\r");
    row("ready", "");
    row("NAME=Living room BT", "get audio\r");
    row("NAME=Living room", "set name=Living room BT\rget audio\r"); // the last of several words is the suffix
    row("NAME=Kitchen BT", "set name=Living room BT\rget audio\r");
    row("NAME", "set name=Living room BT\rget audio\r");
    row("AUDIO=3", "get i2s\r");
    row("AUDIO=30", "set audio=3\rget i2s\r");
    row("I2S=0202", "get codec\r");
    row("I2S", "set i2s=0202\rget codec\r");
    row("CODEC=7 44100 2", "status\r");
    row("CODEC=7 48000 1", "set codec=7 44100 1\rwrite\rreset\r");
    row("CODEC=6 44100 1", "set codec=7 44100 1\rwrite\rreset\r");
    row("CLOSE_OK A2DP 0123456789AB", "DISCOVERABLE ON\r");
    row("CLOSE_OK AVRCP 0123456789AB", "");
    row("LINK 1 CONNECTED A2DP 0123456789AB", "name 0123456789AB\r");
    row("LINK 1 CONNECTED AVRCP 0123456789AB PLAYING", "");
    row("", "");
    row("= =", "");
    row("?", "");
}

void ModuleLinesTest::replies()
{
    QFETCH(QString, line);
    ModuleProtocol protocol([] { return QStringLiteral("Living room"); });
    QTEST(protocol.process(line).command, "command");
}

void ModuleLinesTest::chainEndsInSaveOrStatus()
{
    QString speakerName = QStringLiteral("K\u00C3\u00BC");
    ModuleProtocol protocol([&] { return speakerName; });
    const auto answer = [&](const char *line) { return protocol.process(QString::fromLatin1(line)).command; };

    // A name of one word stands for itself.
    QCOMPARE(answer("NAME=K\xC3\xBC"), QByteArray("get audio\r"));
    // A correction anywhere is saved once, at the end.
    QCOMPARE(answer("NAME=Old BT"), QByteArray("set name=K\xC3\x83\xC2\xBC BT\rget audio\r"));
    QCOMPARE(answer("AUDIO=3"), QByteArray("get i2s\r"));
    QCOMPARE(answer("I2S=0202"), QByteArray("get codec\r"));
    QCOMPARE(answer("CODEC=7 44100 1"), QByteArray("write\rreset\r"));
    QCOMPARE(answer("CODEC=7 44100 1"), QByteArray("status\r"));
    answer("AUDIO=1");
    QCOMPARE(answer("CODEC=7 44100 1"), QByteArray("write\rreset\r"));
    answer("I2S=0");
    QCOMPARE(answer("CODEC=1"), QByteArray("set codec=7 44100 1\rwrite\rreset\r"));
    QCOMPARE(answer("CODEC=7 44100 1"), QByteArray("status\r"));

    speakerName.clear();
    QCOMPARE(answer("NAME=Old BT"), QByteArray());
    QCOMPARE(answer("CODEC=7 44100 1"), QByteArray("status\r"));
}

void ModuleLinesTest::whatIsNotKeptIsNotSavedAgain()
{
    QString speakerName = QStringLiteral("A=B"); // which the module's answer does not tell from "A B"
    ModuleProtocol protocol([&] { return speakerName; });
    // One check; returns how it ends.
    const auto check = [&](const char *name, const char *audio) {
        protocol.process(QString::fromLatin1(name));
        protocol.process(QString::fromLatin1(audio));
        protocol.process(QStringLiteral("I2S=0202"));
        return protocol.process(QStringLiteral("CODEC=7 44100 1")).command;
    };
    const QByteArray saved = "write\rreset\r";
    const QByteArray done = "status\r";

    QCOMPARE(check("NAME=CSR8675 BT", "AUDIO=0"), saved);
    QCOMPARE(check("NAME=A=B BT", "AUDIO=3"), saved); // something else than before
    QCOMPARE(check("NAME=A=B BT", "AUDIO=3"), done);
    QCOMPARE(protocol.process(QStringLiteral("NAME=A=B BT")).command, QByteArray("set name=A=B BT\rget audio\r"));
    QCOMPARE(check("NAME=A=B BT", "AUDIO=0"), saved);
    speakerName = QStringLiteral("C=D");
    QCOMPARE(check("NAME=A=B BT", "AUDIO=0"), saved);
    QCOMPARE(check("NAME=C=D BT", "AUDIO=0"), done);
    // A module that has lost its settings after a check that found nothing is saved again.
    speakerName = QStringLiteral("Kitchen");
    QCOMPARE(check("NAME=CSR8675 BT", "AUDIO=0"), saved);
    QCOMPARE(check("NAME=Kitchen BT", "AUDIO=3"), done);
    QCOMPARE(check("NAME=CSR8675 BT", "AUDIO=0"), saved);

    // A codec that cannot be set.
    ModuleProtocol other([] { return QString(); });
    const auto codec = [&] { return other.process(QStringLiteral("CODEC=5")).command; };
    QCOMPARE(codec(), QByteArray("set codec=7 44100 1\rwrite\rreset\r"));
    QCOMPARE(codec(), QByteArray("set codec=7 44100 1\rstatus\r"));
    QCOMPARE(codec(), QByteArray("set codec=7 44100 1\rstatus\r"));
}

void ModuleLinesTest::namesThatACommandCannotHold()
{
    QString speakerName = QStringLiteral("Kitchen\r");
    ModuleProtocol protocol([&] { return speakerName; });
    const auto answer = [&](const QByteArray &name) {
        return protocol.process(QString::fromLatin1("NAME=" + name)).command;
    };
    QCOMPARE(answer("Old BT"), QByteArray("set name=Kitchen BT\rget audio\r"));
    QCOMPARE(answer("Kitchen BT"), QByteArray("get audio\r"));
    speakerName = QStringLiteral("\r");
    QCOMPARE(answer("Old BT"), QByteArray());
    // A Bluetooth name has 248 bytes.
    speakerName = QString(1000, QLatin1Char('a'));
    const QByteArray longest = QByteArray(245, 'a') + " BT";
    QCOMPARE(answer("Old BT"), "set name=" + longest + "\rget audio\r");
    QCOMPARE(answer(longest), QByteArray("get audio\r"));
}

void ModuleLinesTest::phoneEvents()
{
    ModuleProtocol protocol([] { return QString(); });
    const struct {
        const char *line;
        bool connected;
        bool streaming;
        bool notify;
        bool queryStatus;
    } steps[] = {
        {"OPEN_OK AVRCP 01", false, false, false, false},
        {"OPEN_OK A2DP 01", true, false, true, true},
        {"AVRCP_PLAY 01", true, true, true, false},
        {"AVRCP_PAUSE 01", true, false, true, false},
        {"AVRCP_PLAY 01", true, true, true, false},
        {"AVRCP_STOP 01", true, false, true, false},
        {"AVRCP_PLAY 01", true, true, true, false},
        {"CLOSE_OK A2DP 01", false, false, true, false},
        {"STATE CONNECTED", true, false, true, false},
        {"STATE=CONNECTABLE", false, false, true, false},
        {"STATE CONNECTED", true, false, true, false},
        {"STATE SLEEPING", true, false, true, false},
        {"LINK 2 CONNECTED AVRCP 01 PLAYING", true, true, true, false},
        {"LINK 2 CONNECTED AVRCP 01 SEEKING", true, true, true, false},
        {"LINK 2 CONNECTED HFP 01 STOPPED", true, true, true, false},
        {"LINK 2 CONNECTED AVRCP 01 PAUSED", true, false, true, false},
        {"LINK 2 CONNECTED AVRCP 01 PLAYING", true, true, true, false},
        {"LINK 2 CONNECTED AVRCP 01 STOPPED", true, false, true, false},
        {"LINK", true, false, true, false},
        {"OPEN_OK", true, false, false, false},
    };
    for (const auto &step : steps) {
        const ModuleReaction reaction = protocol.process(QString::fromLatin1(step.line));
        QVERIFY2(protocol.isConnected() == step.connected && protocol.isStreaming() == step.streaming
                     && reaction.notify == step.notify && reaction.queryStatus == step.queryStatus,
                 step.line);
    }
}

void ModuleLinesTest::phoneName()
{
    ModuleProtocol protocol([] { return QStringLiteral("Kitchen"); });
    const auto answer = [&](const char *line) { return protocol.process(QString::fromLatin1(line)).command; };
    QCOMPARE(answer("LINK 1 CONNECTED A2DP 01"), QByteArray("name 01\r"));
    QCOMPARE(answer("NAME 01 Anna's  phone=x"), QByteArray());
    QCOMPARE(protocol.phoneName(), QStringLiteral("Anna's  phone x"));
    QCOMPARE(answer("NAME=Kitchen BT"), QByteArray("get audio\r")); // the next one is the module's again
    answer("CLOSE_OK A2DP 01");
    QCOMPARE(protocol.phoneName(), QStringLiteral("Anna's  phone x"));
    answer("LINK 1 CONNECTED A2DP 01");
    answer("NAME");
    QCOMPARE(protocol.phoneName(), QString());
}

void ModuleLinesTest::takesAnyBytes()
{
    QRandomGenerator random(3);
    LineReader reader;
    ModuleProtocol protocol([] { return QStringLiteral("Kitchen"); });
    const QByteArray alphabet = "NAME=LINK A2DP\r\n \0CODEC7x";
    for (int round = 0; round < 20000; ++round) {
        QByteArray bytes(random.bounded(40), '\0');
        for (char &byte : bytes)
            byte = round % 2 == 0 ? static_cast<char>(random.bounded(256))
                                  : alphabet.at(random.bounded(static_cast<int>(alphabet.size())));
        for (const QString &line : reader.feed(bytes))
            protocol.process(line);
    }
}

QTEST_GUILESS_MAIN(ModuleLinesTest)
#include "tst_modulelines.moc"

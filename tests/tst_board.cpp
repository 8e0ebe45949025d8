// What start-up reads, as plain functions.

#include "board/kadoinfo.h"
#include "board/speakername.h"
#include "commandline.h"
#include "sim/board.h"

#include <QBuffer>
#include <QTest>

class BoardFilesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void commandLine_data();
    void commandLine();
    void deviceInformation_data();
    void deviceInformation();
    void speakerName_data();
    void speakerName();
};

void BoardFilesTest::commandLine_data()
{
    using Action = CommandLine::Action;
    QTest::addColumn<QString>("words");
    QTest::addColumn<int>("action");
    QTest::addColumn<int>("debugLevel");
    QTest::addColumn<bool>("logToStderr");
    QTest::addColumn<bool>("aacDisabled");
    const auto row = [](const char *words, Action action, int level, bool toStderr, bool noAac) {
        QTest::newRow(words) << QString::fromLatin1(words) << static_cast<int>(action) << level << toStderr << noAac;
    };
    row("", Action::Run, 0, false, false);
    row("--stderr --debug 9 --disable-aac", Action::Run, 9, true, true);
    row("--debug 3 --debug -1", Action::Run, -1, false, false);
    row("--debug --stderr", Action::Run, 0, false, false);
    row("--debug loud --stderr", Action::Run, 0, true, false);
    row("--debug 0x9", Action::Run, 0, false, false);
    row("--version --nonsense", Action::PrintVersion, 0, false, false);
    row("--stderr --nonsense --version", Action::PrintUsage, 0, true, false);
    row("--debug", Action::PrintUsage, 0, false, false);
    row("--debug=9", Action::PrintUsage, 0, false, false);
    row("--STDERR", Action::PrintUsage, 0, false, false);
    row("file", Action::PrintUsage, 0, false, false);
}

void BoardFilesTest::commandLine()
{
    QFETCH(QString, words);
    const CommandLine line = CommandLine::parse(words.isEmpty() ? QStringList() : words.split(QLatin1Char(' ')));
    QTEST(static_cast<int>(line.action), "action");
    QTEST(line.log.debugLevel, "debugLevel");
    QTEST(line.log.logToStderr, "logToStderr");
    QTEST(line.aacDisabled, "aacDisabled");
}

void BoardFilesTest::deviceInformation_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<bool>("melody");
    const auto row = [](const char *name, const char *xml, bool melody) {
        QTest::newRow(name) << QByteArray(xml) << melody;
    };
    row("as a board has it", "<?xml version=\"1.0\"?>\n<kado>\n <settings>\n  <bt>melody</bt>\n </settings>\n</kado>",
        true);
    row("nothing before bt", "<settings><bt>melody</bt></settings>", false);
    row("a second bt counts", "<settings><bt>usb</bt><bt>melody</bt></settings>", true);
    row("deeper, and later ones do not matter", "<settings> <a><bt>melody</bt></a><bt>usb</bt></settings>", true);
    row("behind the settings", "<k><settings> </settings><bt>melody</bt></k>", true);
    row("before the settings", "<k><bt>melody</bt><settings> </settings></k>", false);
    row("blank before the word", "<settings> <bt> melody</bt></settings>", false);
    row("capital letter", "<settings> <bt>Melody</bt></settings>", false);
    row("a comment is no text", "<settings> <bt><!--melody--></bt></settings>", false);
    row("an element in between", "<settings> <bt><x/>melody</bt></settings>", false);
    row("no settings", "<k> <bt>melody</bt></k>", false);
    row("broken behind it", "<settings> <bt>melody</bt></wrong>", true);
    row("broken before it", "<settings> </wrong><bt>melody</bt>", false);
    row("an umlaut that is no UTF-8 behind it",
        "<settings> <bt>melody</bt> K\xFC"
        "che</settings>",
        false);
    row("empty", "", false);
    row("not XML", "melody", false);
    row("only settings", "<settings/>", false);
}

void BoardFilesTest::deviceInformation()
{
    QFETCH(QByteArray, xml);
    QBuffer file(&xml);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QTEST(kadoInfo::selectsMelody(file), "melody");
}

void BoardFilesTest::speakerName_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("name");
    QTest::newRow("one line") << QByteArray("Kitchen\n") << "Kitchen";
    QTest::newRow("no line feed") << QByteArray("Kitchen") << "Kitchen";
    QTest::newRow("first line only") << QByteArray("Kitchen\nBath\n") << "Kitchen";
    QTest::newRow("only line feeds go") << QByteArray(" Living room \r\n") << " Living room \r";
    QTest::newRow("up to a zero byte") << QByteArray("Kit\0chen\n", 9) << "Kit";
    QTest::newRow("byte by byte") << QByteArray("K\xC3\xBC") << QString::fromLatin1("K\xC3\xBC");
    QTest::newRow("empty line") << QByteArray("\nKitchen\n") << "";
    QTest::newRow("empty file") << QByteArray() << "";
    QTest::newRow("zero byte first") << QByteArray("\0Kitchen", 8) << "";
}

void BoardFilesTest::speakerName()
{
    QFETCH(QByteArray, content);
    sim::writePlayerName(content);
    QTEST(readSpeakerName(), "name");

    sim::writePlayerName(QByteArray(1024 * 1024, 'a'));
    const auto length = readSpeakerName().size();
    QVERIFY(length > 248 && length <= 64 * 1024);
    sim::removePlayerName();
    QCOMPARE(readSpeakerName(), QString());
}

QTEST_GUILESS_MAIN(BoardFilesTest)
#include "tst_board.moc"

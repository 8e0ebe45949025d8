// The codecs as plain functions: elements and packets in, elements and audio out.

#include "codec/adtsheader.h"
#include "codec/codecaac.h"
#include "codec/codecmp3.h"
#include "codec/codecsbc.h"
#include "packetatpageend.h"
#include "recordingdevice.h"
#include "sim/sbcstream.h"

#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QTest>

#include <cmath>

Q_DECLARE_METATYPE(sim::SbcFormat)

namespace {

constexpr int Mtu = 672;
constexpr int PayloadOffset = 13;

/// Two tones with some noise, so that every subband has something in it.
QByteArray music(double seconds, const sim::SbcFormat &format)
{
    QRandomGenerator noise(1);
    QByteArray pcm;
    const int frames = static_cast<int>(seconds * format.sampleRate);
    for (int i = 0; i < frames; ++i) {
        for (int channel = 0; channel < format.channels(); ++channel) {
            const double tone = std::sin(i * (channel == 0 ? 0.0627 : 0.1881)) * 9000;
            const auto sample = static_cast<qint16>(tone + noise.bounded(-2000, 2000));
            pcm.append(reinterpret_cast<const char *>(&sample), sizeof sample);
        }
    }
    return pcm;
}

QByteArray play(Codec &codec, const QList<QByteArray> &packets)
{
    RecordingDevice out;
    for (const QByteArray &packet : packets) {
        const PacketAtPageEnd atEnd(packet);
        codec.processPacket(atEnd.data(), atEnd.size(), &out);
    }
    return out.everything();
}

QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

void addSelectionColumns()
{
    QTest::addColumn<QByteArray>("offered");
    QTest::addColumn<QByteArray>("selected");
}

void addStreamColumns()
{
    QTest::addColumn<QByteArray>("configuration");
    QTest::addColumn<int>("sampleRate");
    QTest::addColumn<int>("channels");
}

} // namespace

class CodecsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false); }

    void sbcSelection_data();
    void sbcSelection();
    void sbcStream_data();
    void sbcStream();
    void sbcDecodesLikeABareLoop_data();
    void sbcDecodesLikeABareLoop();
    void sbcWritesOncePerPacket();
    void sbcPlaysWhatComesBeforeAFault();
    void sbcTakesAnyBytes();

    void aacSelection_data();
    void aacSelection();
    void aacStream_data();
    void aacStream();
    void aacBecomesAdts();
    void aacDropsWhatDoesNotFit();

    void mp3AnswersAreFixed();
};

void CodecsTest::sbcSelection_data()
{
    addSelectionColumns();
    QTest::newRow("everything") << hex("fffF02fa") << hex("111602fa");
    QTest::newRow("a usual phone") << hex("21150235") << hex("21150235");
    QTest::newRow("nothing at all") << QByteArray() << hex("11160200");
    QTest::newRow("two octets") << hex("ffff") << hex("11160200");
    QTest::newRow("three octets") << hex("ffff10") << hex("11161000");
    QTest::newRow("mono before dual channel") << hex("2cff0235") << hex("28160235");
    QTest::newRow("dual channel alone") << hex("84a90235") << hex("84290235");
    QTest::newRow("no allocation bit is SNR") << hex("21140235") << hex("21160235");
    QTest::newRow("bitpool limits") << hex("111501ff") << hex("111502fa");
    QTest::newRow("minimum above maximum is kept") << hex("1115ff10") << hex("1115ff10");
}

void CodecsTest::sbcSelection()
{
    QFETCH(QByteArray, offered);
    CodecSBC codec;
    QCOMPARE(codec.type(), std::uint8_t{0});
    QCOMPARE(codec.formatName(), QStringLiteral("pcm"));
    QCOMPARE(codec.capabilities().toHex(), QByteArray("ffff02fa"));
    QTEST(codec.selectConfiguration(offered), "selected");
}

void CodecsTest::sbcStream_data()
{
    addStreamColumns();
    QTest::newRow("48000") << hex("11150235") << 48000 << 2;
    QTest::newRow("44100") << hex("21150235") << 44100 << 2;
    QTest::newRow("32000 dual channel") << hex("44150235") << 32000 << 2;
    QTest::newRow("16000 mono") << hex("88150235") << 16000 << 1;
    QTest::newRow("one octet") << hex("18") << 48000 << 1;
    QTest::newRow("two rates") << hex("31150235") << 44100 << 2;
    QTest::newRow("mono and stereo") << hex("1a150235") << 48000 << 2;
    QTest::newRow("empty") << QByteArray() << 44100 << 2;
}

void CodecsTest::sbcStream()
{
    QFETCH(QByteArray, configuration);
    CodecSBC codec;
    codec.setConfiguration(configuration);
    QTEST(codec.sampleRate, "sampleRate");
    QTEST(codec.channels, "channels");
    QCOMPARE(codec.bitDepth, 16);
}

void CodecsTest::sbcDecodesLikeABareLoop_data()
{
    using Mode = sim::SbcFormat::Mode;
    QTest::addColumn<sim::SbcFormat>("format");
    QTest::addColumn<int>("mtu");
    QTest::newRow("44.1 kHz joint stereo, bitpool 53") << sim::SbcFormat{} << Mtu;
    QTest::newRow("48 kHz stereo, SNR") << sim::SbcFormat{48000, Mode::Stereo, 16, 8, true, 51} << 1017;
    QTest::newRow("12 and more small frames") << sim::SbcFormat{44100, Mode::JointStereo, 16, 8, false, 20} << Mtu;
    QTest::newRow("15 tiny frames") << sim::SbcFormat{44100, Mode::Mono, 16, 8, false, 4} << Mtu;
    QTest::newRow("4 subbands, 4 blocks") << sim::SbcFormat{16000, Mode::DualChannel, 4, 4, true, 31} << 256;
    QTest::newRow("mono at its largest bitpool") << sim::SbcFormat{32000, Mode::Mono, 16, 8, false, 128} << 895;
    QTest::newRow("stereo at its largest bitpool") << sim::SbcFormat{48000, Mode::Stereo, 16, 8, false, 250} << 1017;
}

void CodecsTest::sbcDecodesLikeABareLoop()
{
    QFETCH(sim::SbcFormat, format);
    QFETCH(int, mtu);
    const QList<QByteArray> packets = sim::encodeSbc(music(0.5, format), format, mtu);
    CodecSBC codec;
    codec.prepare(mtu);
    const QByteArray heard = play(codec, packets);
    QVERIFY(heard.size() >= format.sampleRate * format.channels());
    QVERIFY(heard == sim::decodeSbc(packets));
}

void CodecsTest::sbcWritesOncePerPacket()
{
    const sim::SbcFormat format;
    const QList<QByteArray> packets = sim::encodeSbc(music(0.2, format), format, Mtu);
    CodecSBC codec;
    RecordingDevice out;
    codec.processPacket(packets[0].constData(), static_cast<int>(packets[0].size()), &out);
    QCOMPARE(out.everything().size(), 0); // not prepared: no room for PCM
    out.writes.clear();

    codec.prepare(Mtu);
    codec.processPacket(packets[0].constData(), static_cast<int>(packets[0].size()), nullptr);
    for (const QByteArray &packet : packets)
        codec.processPacket(packet.constData(), static_cast<int>(packet.size()), &out);
    QCOMPARE(out.writes.size(), packets.size());
    QVERIFY(out.everything() == sim::decodeSbc(packets)); // the packet without a device left no trace
}

void CodecsTest::sbcPlaysWhatComesBeforeAFault()
{
    const sim::SbcFormat format;
    const QByteArray packet = sim::encodeSbc(music(0.1, format), format, Mtu).constFirst();
    const QByteArray whole = sim::decodeSbc({packet});
    const int frames = static_cast<uchar>(packet.at(12));
    const int frameBytes = static_cast<int>(packet.size() - PayloadOffset) / frames;
    const int framePcm = static_cast<int>(whole.size()) / frames;
    QCOMPARE(frames, 5);

    QByteArray badSync = packet;
    badSync[PayloadOffset + 2 * frameBytes] = 0;
    QByteArray badCrc = packet;
    badCrc[PayloadOffset + 3 * frameBytes + 3] = static_cast<char>(badCrc[PayloadOffset + 3 * frameBytes + 3] ^ 0x55);
    QByteArray badBitpool = packet;
    badBitpool[PayloadOffset + frameBytes + 2] = static_cast<char>(0xFF);
    const struct {
        const char *name;
        QByteArray packet;
        int frames;
    } faults[] = {
        {"cut in the last frame", packet.chopped(1), 4},
        {"cut in a header", packet.left(PayloadOffset + frameBytes + 2), 1},
        {"padding behind the last frame", packet + QByteArray(7, '\0'), 5},
        {"one byte of padding", packet + QByteArray(1, '\x9C'), 5},
        {"lost sync", badSync, 2},
        {"wrong CRC", badCrc, 3},
        {"impossible bitpool", badBitpool, 1},
        {"header only", packet.left(PayloadOffset), 0},
    };
    for (const auto &fault : faults) {
        CodecSBC codec;
        codec.prepare(Mtu);
        const QByteArray heard = play(codec, {fault.packet});
        QVERIFY2(heard == whole.left(fault.frames * framePcm),
                 qPrintable(QStringLiteral("%1: %2 bytes").arg(QLatin1String(fault.name)).arg(heard.size())));
    }
}

void CodecsTest::sbcTakesAnyBytes()
{
    QRandomGenerator random(7);
    CodecSBC sbc;
    CodecAAC aac;
    for (int round = 0; round < 3000; ++round) {
        QByteArray packet(random.bounded(round < 1000 ? 41 : Mtu + 1), '\0');
        for (char &byte : packet)
            byte = static_cast<char>(random.bounded(256));
        if (packet.size() > PayloadOffset && round % 2 == 0)
            packet[PayloadOffset] = '\x9C';
        sbc.prepare(Mtu);
        play(sbc, {packet});
        play(aac, {packet});
        sbc.setConfiguration(packet);
        QCOMPARE(sbc.selectConfiguration(packet).size(), 4);
        aac.setConfiguration(packet);
        QCOMPARE(aac.selectConfiguration(packet).size(), 6);
    }
}

void CodecsTest::aacSelection_data()
{
    addSelectionColumns();
    QTest::newRow("everything") << hex("80fffcffffff") << hex("800014ffffff");
    QTest::newRow("44.1 and 48 kHz, variable rate") << hex("80018483e800") << hex("80008483e800");
    QTest::newRow("another object type") << hex("4001048 3e800") << hex("80010483e800");
    QTest::newRow("64 kHz after 44.1") << hex("80014c000000") << hex("800104000000");
    QTest::newRow("mono only") << hex("80010800fa00") << hex("80010800fa00");
    QTest::newRow("8 kHz") << hex("808004000000") << hex("808004000000");
    QTest::newRow("nothing at all") << QByteArray() << hex("800014000000");
    QTest::newRow("two octets") << hex("8001") << hex("800104000000");
    QTest::newRow("four octets") << hex("80010483") << hex("800104830000");
}

void CodecsTest::aacSelection()
{
    QFETCH(QByteArray, offered);
    CodecAAC codec;
    QCOMPARE(codec.type(), std::uint8_t{2});
    QCOMPARE(codec.formatName(), QStringLiteral("aac"));
    QCOMPARE(codec.capabilities().toHex(), QByteArray("80fffcffffff"));
    QTEST(codec.selectConfiguration(offered), "selected");
}

void CodecsTest::aacStream_data()
{
    addStreamColumns();
    QTest::newRow("44100") << hex("80010483e800") << 44100 << 2;
    QTest::newRow("48000 mono") << hex("80008883e800") << 48000 << 1;
    QTest::newRow("96000") << hex("800014000000") << 96000 << 2;
    QTest::newRow("8000") << hex("808004000000") << 8000 << 2;
    QTest::newRow("11025 from two octets") << hex("8040") << 11025 << 2;
    QTest::newRow("two rates") << hex("800184000000") << 44100 << 2;
    QTest::newRow("both channel bits") << hex("80010c000000") << 44100 << 2;
    QTest::newRow("one octet") << hex("80") << 44100 << 2;
    QTest::newRow("empty") << QByteArray() << 44100 << 2;
}

void CodecsTest::aacStream()
{
    QFETCH(QByteArray, configuration);
    CodecAAC codec;
    codec.setConfiguration(configuration);
    QTEST(codec.sampleRate, "sampleRate");
    QTEST(codec.channels, "channels");
    QCOMPARE(codec.bitDepth, 16);
}

void CodecsTest::aacBecomesAdts()
{
    CodecAAC codec;
    RecordingDevice out;
    for (const int size : {0, 1, 254, 255, 260, 510, 8184}) {
        const QByteArray payload(size, 'a');
        const PacketAtPageEnd packet(sim::aacPacket(payload));
        codec.processPacket(packet.data(), packet.size(), &out);
        QCOMPARE(out.writes.size(), 1);
        const QByteArray frame = out.writes.takeFirst();
        QCOMPARE(frame.mid(adts::HeaderSize), payload);
        const int length = size + 7;
        const char expected[] = {
            '\xFF',
            '\xF1',
            '\x50',
            static_cast<char>(0x80 | length >> 11),
            static_cast<char>(length >> 3 & 0xFF),
            static_cast<char>((length & 7) << 5 | 0x1F),
            '\xFC',
        };
        QCOMPARE(frame.left(adts::HeaderSize).toHex(), QByteArray(expected, sizeof expected).toHex());
    }
    const QByteArray followed = sim::aacPacket("audio") + "more";
    codec.processPacket(followed.constData(), static_cast<int>(followed.size()), &out);
    QCOMPARE(out.everything().mid(adts::HeaderSize), QByteArray("audio"));
}

void CodecsTest::aacDropsWhatDoesNotFit()
{
    const QByteArray good = sim::aacPacket(QByteArray(300, 'a'));
    CodecAAC codec;
    for (int size = 0; size < good.size(); ++size)
        QCOMPARE(play(codec, {good.left(size)}), QByteArray());
    QCOMPARE(play(codec, {good.left(21) + QByteArray(600, '\xFF')}), QByteArray());
    QCOMPARE(play(codec, {sim::aacPacket(QByteArray(8185, 'a'))}), QByteArray());
    codec.processPacket(good.constData(), static_cast<int>(good.size()), nullptr);
    QCOMPARE(play(codec, {good}).size(), 307);
}

void CodecsTest::mp3AnswersAreFixed()
{
    CodecMP3 codec;
    QCOMPARE(codec.type(), std::uint8_t{1});
    QCOMPARE(codec.formatName(), QStringLiteral("mp3"));
    QCOMPARE(codec.capabilities().toHex(), QByteArray("3fff0240"));
    QCOMPARE(codec.selectConfiguration("abc"), QByteArray("abc"));
    codec.setConfiguration({});
    QCOMPARE(codec.sampleRate, 44100);
    QCOMPARE(codec.bitDepth, 16);
    QCOMPARE(codec.channels, 2);
    QCOMPARE(play(codec, {QByteArray(100, 'a')}), QByteArray());
}

QTEST_GUILESS_MAIN(CodecsTest)
#include "tst_codecs.moc"

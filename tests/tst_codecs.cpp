// SPDX-License-Identifier: MIT
// The codecs without a daemon: elements and packets in, elements and audio out.

#include "codec/adtsheader.h"
#include "codec/codecaac.h"
#include "codec/codecsbc.h"
#include "packetatpageend.h"
#include "recordingdevice.h"
#include "sim/sbcstream.h"

#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QTest>

namespace {

constexpr int Mtu = 672;
constexpr int PayloadOffset = 13;

/// Returns half a second of noise as packets. Noise has signal in every subband.
QList<QByteArray> noise(const sim::SbcFormat &format, int mtu)
{
    QRandomGenerator random(1);
    QByteArray pcm(format.sampleRate * format.channels(), '\0');
    for (char &byte : pcm)
        byte = static_cast<char>(random.bounded(256));
    return sim::encodeSbc(pcm, format, mtu);
}

/// Returns the codec's writes for these packets.
QList<QByteArray> play(Codec &codec, const QList<QByteArray> &packets)
{
    RecordingDevice out;
    for (const QByteArray &packet : packets) {
        const PacketAtPageEnd atEnd(packet);
        codec.processPacket(atEnd.data(), atEnd.size(), &out);
    }
    return out.writes;
}

} // namespace

class CodecsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, false); }

    void choices();
    void sbcDecodesLikeABareLoop();
    void sbcDecodesFramesBeforeAFault();
    void aacBecomesAdts();
    void aacDropsInvalidPackets();
};

void CodecsTest::choices()
{
    CodecSBC sbc;
    CodecAAC aac;
    // Each rate is chosen when the ones before it are not offered.
    QByteArray offered = aac.capabilities();
    for (const int rate : {96000, 88200, 48000, 44100, 64000, 32000, 24000, 22050, 16000, 12000, 11025, 8000}) {
        const QByteArray selected = aac.selectConfiguration(offered);
        aac.setConfiguration(selected);
        QCOMPARE(aac.sampleRate, rate);
        for (const int octet : {1, 2})
            offered[octet] = static_cast<char>(offered.at(octet) & ~selected.at(octet));
    }
    const struct {
        Codec &codec;
        const char *offered;
        const char *selected;
        int sampleRate;
        int channels;
    } rows[] = {
        {sbc, "ffff02fa", "111602fa", 48000, 2},
        {sbc, "eeeb0235", "222a0235", 44100, 2}, // without the first choices, the second ones are taken
        {sbc, "cccd0235", "48450235", 32000, 1},
        {sbc, "84850235", "84850235", 16000, 2},
        {sbc, "ffff10", "11161000", 48000, 2}, // missing octets count as 0
        {sbc, "111501ff", "111502fa", 48000, 2},
        {aac, "80fffcffffff", "800014ffffff", 96000, 2},
        {aac, "40010883e800", "80010883e800", 44100, 1}, // another object type
        {aac, "", "800014000000", 96000, 2},
    };
    for (const auto &row : rows) {
        const QByteArray selected = row.codec.selectConfiguration(QByteArray::fromHex(row.offered));
        QVERIFY2(selected.toHex() == row.selected, row.offered);
        row.codec.setConfiguration(selected);
        QVERIFY2(row.codec.sampleRate == row.sampleRate && row.codec.channels == row.channels, row.offered);
    }
}

void CodecsTest::sbcDecodesLikeABareLoop()
{
    using Mode = sim::SbcFormat::Mode;
    const QPair<sim::SbcFormat, int> streams[] = {
        {{}, Mtu},                                    // the format of most phones
        {{44100, Mode::Stereo, 16, 8, true, 2}, 253}, // filled with 15 tiny frames
        {{16000, Mode::DualChannel, 4, 4, true, 31}, 256},
        {{48000, Mode::Stereo, 16, 8, false, 250}, 1017},
    };
    CodecSBC unprepared; // has no output buffer
    QCOMPARE(play(unprepared, noise({}, Mtu)).join(), QByteArray());
    for (const auto &[format, mtu] : streams) {
        const QList<QByteArray> packets = noise(format, mtu);
        CodecSBC codec;
        codec.prepare(mtu);
        codec.processPacket(packets[0].constData(), static_cast<int>(packets[0].size()),
                            nullptr); // does not change the decoder
        const QList<QByteArray> heard = play(codec, packets);
        QCOMPARE(heard.size(), packets.size());
        QVERIFY(heard.join() == sim::decodeSbc(packets));
    }
}

void CodecsTest::sbcDecodesFramesBeforeAFault()
{
    const QByteArray packet = noise({}, Mtu).constFirst();
    const QByteArray whole = sim::decodeSbc({packet});
    const int frames = static_cast<uchar>(packet.at(PayloadOffset - 1));
    const auto frameBytes = (packet.size() - PayloadOffset) / frames;
    QByteArray broken = packet;
    broken[PayloadOffset + 2 * frameBytes + 3] = static_cast<char>(~broken[PayloadOffset + 2 * frameBytes + 3]);
    const struct {
        const char *name;
        QByteArray packet;
        int frames;
    } faults[] = {
        {"cut in the last frame", packet.chopped(1), frames - 1},
        {"cut in a header", packet.left(PayloadOffset + frameBytes + 2), 1},
        {"padding after the last frame", packet + QByteArray(7, '\0'), frames},
        {"wrong checksum", broken, 2},
        {"not even a header", packet.left(PayloadOffset - 1), 0},
    };
    for (const auto &fault : faults) {
        CodecSBC codec;
        codec.prepare(Mtu);
        QVERIFY2(play(codec, {fault.packet}).join() == whole.left(fault.frames * whole.size() / frames), fault.name);
    }
}

void CodecsTest::aacBecomesAdts()
{
    CodecAAC codec;
    const QPair<int, const char *> headers[] = {
        {0, "fff1508000fffc"},   {254, "fff1508020bffc"},  {255, "fff1508020dffc"},
        {510, "fff1508040bffc"}, {8184, "fff15083fffffc"},
    };
    for (const auto &[size, header] : headers) {
        const QByteArray payload(size, 'a');
        const QList<QByteArray> heard = play(codec, {sim::aacPacket(payload) + "more"});
        QCOMPARE(heard.size(), 1);
        QCOMPARE(heard[0].left(adts::HeaderSize).toHex(), QByteArray::fromHex(header).toHex());
        QCOMPARE(heard[0].mid(adts::HeaderSize), payload);
    }
}

void CodecsTest::aacDropsInvalidPackets()
{
    const QByteArray good = sim::aacPacket(QByteArray(300, 'a'));
    CodecAAC codec;
    for (int size = 0; size < good.size(); ++size)
        QVERIFY(play(codec, {good.left(size)}).isEmpty());
    QVERIFY(play(codec, {good.left(21) + QByteArray(600, '\xFF')}).isEmpty());
    QVERIFY(play(codec, {sim::aacPacket(QByteArray(8185, 'a'))}).isEmpty());
}

QTEST_GUILESS_MAIN(CodecsTest)
#include "tst_codecs.moc"

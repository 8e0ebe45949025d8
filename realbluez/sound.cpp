// SPDX-License-Identifier: MIT
#include "realbluez/sound.h"

#include "realbluez/log.h"
#include "sim/sbcstream.h"

#include <QDataStream>
#include <QDir>
#include <QFile>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace realbluez {

namespace {

constexpr int Rate = 44'100;
constexpr int BytesPerFrame = 4; // two channels of 16 bits
// Audio that a cut stream may lose: the packets in the kernels and on the radio between phone and speaker.
constexpr double MaxLostSeconds = 0.5;

QString fileName(const char *kind, int number)
{
    return QStringLiteral("%1-%2").arg(QLatin1String(kind)).arg(number);
}

bool save(const QString &name, const QByteArray &bytes)
{
    QFile file(QDir(Share).filePath(name));
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray load(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

double seconds(const QByteArray &pcm)
{
    return static_cast<double>(pcm.size()) / (Rate * BytesPerFrame);
}

/// Returns the last packets whose PCM is within the first `size` bytes. The daemon's decoder still has them in its
/// filters when the next stream begins, unless BlueZ was restarted in between.
QList<QByteArray> decoderHistory(const QList<QByteArray> &packets, qsizetype size)
{
    constexpr int FilterPackets = 2;
    QList<QByteArray> heard = packets;
    while (sim::decodeSbc(heard).size() > size)
        heard.removeLast();
    return heard.mid(std::max(0, static_cast<int>(heard.size()) - FilterPackets));
}

/// Counts the places where audio is lost, repeated or altered.
int discontinuities(const QByteArray &decoded, const QByteArray &heard)
{
    constexpr int Block = 512;
    int count = 0;
    int expected = 0;
    for (int position = 0; position + Block <= heard.size(); position += Block) {
        const QByteArray block = heard.mid(position, Block);
        if (decoded.mid(expected, Block) != block) {
            ++count;
            const auto found = static_cast<int>(decoded.indexOf(block));
            if (found < 0)
                continue;
            expected = found;
        }
        expected += Block;
    }
    return count;
}

} // namespace

QByteArray sound(int seconds, int number)
{
    constexpr double Amplitude = 10'000;
    constexpr double TwoPi = 6.283185307179586;
    constexpr double RiseHz = 40; // per second
    std::vector<std::int16_t> samples;
    for (int i = 0; i < seconds * Rate; ++i) {
        const double time = static_cast<double>(i) / Rate;
        for (const double start : {300.0 + 50 * number, 500.0 + 70 * number}) // left, right
            samples.push_back(
                static_cast<std::int16_t>(Amplitude * std::sin(TwoPi * time * (start + RiseHz / 2 * time))));
    }
    QByteArray pcm(static_cast<int>(samples.size() * sizeof(std::int16_t)), '\0');
    std::memcpy(pcm.data(), samples.data(), samples.size() * sizeof(std::int16_t));
    return pcm;
}

int nextSound()
{
    return static_cast<int>(QDir(Share).entryList({QStringLiteral("sent-*")}).size());
}

void saveSent(const SentStream &sent)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_5_15);
    stream << sent.complete << sent.packets;
    save(fileName("sent", nextSound()), bytes);
}

void saveHeard(const QByteArray &pcm, int number)
{
    save(fileName("heard", number), pcm);
}

bool compareStreams(const QString &folder)
{
    const QDir dir(folder);
    bool good = true;
    int number = 0;
    QList<QByteArray> before;
    for (; dir.exists(fileName("sent", number)) || dir.exists(fileName("heard", number)); ++number) {
        SentStream sent;
        QDataStream stream(load(dir.filePath(fileName("sent", number))));
        stream.setVersion(QDataStream::Qt_5_15);
        stream >> sent.complete >> sent.packets;
        const QByteArray heard = load(dir.filePath(fileName("heard", number)));

        QByteArray fresh = sim::decodeSbc(sent.packets);
        QByteArray continued = sim::decodeSbc(before + sent.packets).mid(sim::decodeSbc(before).size());
        const double sentSeconds = seconds(fresh);
        if (!sent.complete) {
            fresh.truncate(heard.size());
            continued.truncate(heard.size());
        }
        const bool same = (heard == continued || heard == fresh) && seconds(heard) > sentSeconds - MaxLostSeconds;
        good = good && same;
        std::printf("stream %d%s: %.2f s sent, %.2f s heard, %s, %d discontinuities\n", number + 1,
                    sent.complete ? "" : ", cut off", sentSeconds, seconds(heard), same ? "bit-exact" : "NOT as sent",
                    same ? 0 : discontinuities(continued, heard));
        before = decoderHistory(sent.packets, heard.size());
    }
    return good && number > 0;
}

} // namespace realbluez

// SPDX-License-Identifier: MIT
#pragma once

#include "boardtest.h"

#include <cmath>

namespace boardtest {

inline const QStringList Traced{QStringLiteral("--stderr"), QStringLiteral("--debug"), QStringLiteral("9")};
inline const QString TransportInterface = QStringLiteral("org.bluez.MediaTransport1");
inline constexpr int Mtu = 672;

/// Returns packets of a rising tone, `seconds` long. No two sections of the tone are the same.
inline QList<QByteArray> packets(double seconds, const sim::SbcFormat &format = {})
{
    QByteArray pcm;
    for (int i = 0; i < static_cast<int>(seconds * format.sampleRate); ++i) {
        for (int channel = 0; channel < format.channels(); ++channel) {
            const auto sample = static_cast<qint16>(12000 * std::sin(i * (0.02 + i * 1e-7) * (channel + 1)));
            pcm.append(reinterpret_cast<const char *>(&sample), sizeof sample);
        }
    }
    return sim::encodeSbc(pcm, format, Mtu);
}

/// Returns the PCM of `sent` from a decoder that has decoded `before`.
inline QByteArray decodedAfter(const QList<QByteArray> &before, const QList<QByteArray> &sent)
{
    return sim::decodeSbc(before + sent).mid(sim::decodeSbc(before).size());
}

/// A board with a connected phone and a configured SBC stream. Check `ready` before use.
struct ConfiguredBoard {
    explicit ConfiguredBoard(const QStringList &arguments = {QStringLiteral("--stderr")},
                             const QString &redirection = {})
        : phone(board.bluez, PhonePath, QStringLiteral("Anna"))
    {
        ready = board.startDaemon(arguments, redirection);
        phone.connect();
        ready = ready && sim::waitFor([&] { return board.player.targets().size() == 2; }) && phone.authorize()
            && phone.configure(sim::SbcFormat{});
    }

    /// Connects the player to the audio socket, then starts the stream, so that the player receives the first packet.
    bool startHeard() { return board.player.connectAudio() && phone.start(Mtu) && active(); }

    bool streaming() { return board.control.property(QStringLiteral("Streaming")).toBool(); }
    bool active()
    {
        return sim::waitFor([&] { return streaming(); });
    }

    /// Lets BlueZ report this state of the transport.
    void state(const char *value)
    {
        board.bluez.setProperty(phone.transportPath(), TransportInterface, QStringLiteral("State"),
                                QString::fromLatin1(value));
    }

    bool send(const QList<QByteArray> &list)
    {
        for (const QByteArray &packet : list) {
            if (!phone.send(packet))
                return false;
        }
        return true;
    }

    bool hears(const QByteArray &pcm)
    {
        return sim::waitFor([&] { return board.player.heard().size() >= pcm.size(); }) && board.player.heard() == pcm;
    }

    /// Clears the configuration, if any, and plays a new stream. Returns whether the daemon delivers every sample.
    bool playsNewStream()
    {
        if (!phone.transportPath().isEmpty() && !phone.clear())
            return false;
        const QList<QByteArray> sent = packets(0.3);
        const QByteArray pcm = sim::decodeSbc(sent);
        if (!phone.configure(sim::SbcFormat{}) || !startHeard() || !send(sent)
            || !sim::waitFor([&] { return board.player.heard().size() >= pcm.size(); }))
            return false;
        // Skip the first packet, because it depends on the decoder's filter state from earlier streams.
        const auto firstPacket = sim::decodeSbc({sent.constFirst()}).size();
        return board.player.heard().mid(firstPacket) == pcm.mid(firstPacket);
    }

    bool logs(const char *line)
    {
        return sim::waitFor([&] { return board.daemon.logged(QString::fromUtf8(line)); });
    }

    sim::Board board;
    sim::Phone phone;
    bool ready = false;
};

} // namespace boardtest

// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>

#include <cstdint>

namespace sim {

/// What a phone configures for an SBC stream (A2DP 1.3.2, 4.3.2).
struct SbcFormat {
    int sampleRate = 44100; ///< Hz: 16000, 32000, 44100 or 48000
    enum class Mode { Mono, DualChannel, Stereo, JointStereo } mode = Mode::JointStereo;
    int blocks = 16;  ///< 4, 8, 12 or 16
    int subbands = 8; ///< 4 or 8
    bool snr = false; ///< allocation method: SNR, or loudness
    int bitpool = 53; ///< 2 to 250

    int channels() const { return mode == Mode::Mono ? 1 : 2; }
    /// The four octets with which BlueZ sets this format: one bit for each choice, bitpool 2 to `bitpool`.
    QByteArray configuration() const;
};

/// Encodes 16-bit native-endian interleaved PCM with libsbc into A2DP media packets of at most `mtu` bytes, as a phone
/// sends them: a 12-byte RTP header (version 2, payload type 96, sequence number and timestamp in samples counting up),
/// one byte with the frame count, then whole SBC frames. The last frame is filled up with silence. A frame count of
/// a packet never exceeds 15. There are no packets when not even one frame fits into `mtu`.
QList<QByteArray> encodeSbc(const QByteArray &pcm, const SbcFormat &format, int mtu);

/// What a bare loop over `sbc_decode` makes of the same packets, from one fresh decoder: 16-bit native-endian PCM. What
/// follows a frame that does not decode is left out, up to the next packet.
QByteArray decodeSbc(const QList<QByteArray> &packets);

/// Seconds of audio in one packet of encodeSbc.
double packetSeconds(const QByteArray &packet, const SbcFormat &format);

/// An A2DP packet of AAC as phones send it (RFC 3016, LATM): RTP header, 9 bytes of stream configuration, the payload
/// length in bytes of 0xFF and one of less, the payload.
QByteArray aacPacket(const QByteArray &payload, std::uint16_t sequence = 0);

} // namespace sim

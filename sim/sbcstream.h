// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>

#include <cstdint>

namespace sim {

/// The configuration of an SBC stream (A2DP 1.3.2, 4.3.2).
struct SbcFormat {
    int sampleRate = 44100; ///< Hz: 16000, 32000, 44100 or 48000
    enum class Mode { Mono, DualChannel, Stereo, JointStereo } mode = Mode::JointStereo;
    int blocks = 16;  ///< 4, 8, 12 or 16
    int subbands = 8; ///< 4 or 8
    bool snr = false; ///< allocation method; true: SNR, false: loudness
    int bitpool = 53; ///< 2 to 250

    int channels() const { return mode == Mode::Mono ? 1 : 2; }
    /// Returns the four octets of BlueZ's Configuration: one bit for each choice, bitpool range 2 to `bitpool`.
    QByteArray configuration() const;
};

/// Encodes 16-bit native-endian interleaved PCM with libsbc into A2DP media packets of at most `mtu` bytes, like those
/// of a phone: a 12-byte RTP header (version 2, payload type 96, increasing sequence number and timestamp in samples),
/// one byte with the frame count (1 to 15), then whole SBC frames. Fills the last frame with silence. Returns no packet
/// when `mtu` is too small for one frame.
QList<QByteArray> encodeSbc(const QByteArray &pcm, const SbcFormat &format, int mtu);

/// Decodes packets with one fresh libsbc decoder into 16-bit native-endian PCM. Drops the rest of a packet after a
/// frame that cannot be decoded.
QByteArray decodeSbc(const QList<QByteArray> &packets);

/// Returns the duration of the audio in one packet of encodeSbc().
double packetSeconds(const QByteArray &packet, const SbcFormat &format);

/// Returns an A2DP packet of AAC in the form that phones send (RFC 3016, LATM): RTP header, 9 bytes of stream
/// configuration, the payload length (bytes of 0xFF, then one smaller byte; their sum), the payload.
QByteArray aacPacket(const QByteArray &payload, std::uint16_t sequence = 0);

} // namespace sim

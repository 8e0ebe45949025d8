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

/// Signal-to-noise ratio in dB of `heard` against `original`, both 16-bit PCM of the same number of channels, at the
/// delay (0 to 512 frames) that fits best; 0 when either is empty, infinity when they are equal. The codec's delay is
/// thus not counted as noise.
double snrDb(const QByteArray &original, const QByteArray &heard, int channels);

/// A recording as 16-bit PCM.
struct Recording {
    int sampleRate = 0;
    int channels = 0;
    QByteArray pcm;
    double seconds() const
    {
        return channels == 0 ? 0 : static_cast<double>(pcm.size()) / (2.0 * channels * sampleRate);
    }
};

/// Reads any file that libsndfile reads. A sampling rate that SBC does not have is converted to 44100 Hz, more than two
/// channels are cut to two, and one channel is doubled: there are two in any case. On failure the recording is empty
/// and `error` says why.
Recording readRecording(const QString &path, QString &error);

/// Writes a WAV file; false on failure.
bool writeWav(const QString &path, const Recording &recording);

} // namespace sim

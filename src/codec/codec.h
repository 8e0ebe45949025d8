// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <initializer_list>

class QIODevice;

/// An A2DP codec of the sink. It offers its capabilities, chooses and applies a configuration, and converts media
/// packets to the player's format. Capabilities and configurations are codec-specific information elements, exactly as
/// sent over the air (A2DP 1.3.2, 4.3 to 4.5). A codec serves one stream at a time.
class Codec {
public:
    // The configured stream, set by setConfiguration().
    int sampleRate = 0; ///< Hz
    int bitDepth = 0;   ///< bits per sample
    int channels = 0;   ///< 1 or 2

    virtual ~Codec() = default;
    /// Returns the media codec type: 0 SBC, 1 MPEG-1,2 audio, 2 MPEG-2,4 AAC (Bluetooth Assigned Numbers, 6.5.1).
    virtual std::uint8_t type() = 0;
    /// Returns the player's name for the output format: "pcm", "aac" or "mp3".
    virtual QString formatName() = 0;
    /// Returns the element that is offered to phones.
    virtual QByteArray capabilities() = 0;
    /// Returns a configuration chosen from a phone's capabilities. Accepts any input: missing octets count as 0, and a
    /// field without a known value gets the codec's first preference.
    virtual QByteArray selectConfiguration(const QByteArray &peerCapabilities) = 0;
    /// Sets the stream values from a configuration. Accepts any length and content; missing octets count as 0.
    virtual void setConfiguration(const QByteArray &configuration) = 0;
    /// Prepares for packets of at most `readMtu` bytes. Call before the first packet of each acquired stream.
    virtual void prepare(int readMtu) = 0;
    /// Converts one media packet of `length` bytes, which begins with its RTP header, and writes the result to `out` in
    /// one write. Does nothing if `out` is null. Converts a malformed packet up to the first bad frame and drops the
    /// rest. Never reads beyond the packet.
    virtual void processPacket(const char *packet, int length, QIODevice *out) = 0;

protected:
    Codec() = default;
    Codec(const Codec &) = delete;
    Codec &operator=(const Codec &) = delete;

    /// Returns the first of `count` single-bit preferences that is set in `mask`, or the first preference if none is
    /// set.
    static unsigned pickPreferred(unsigned mask, const unsigned *preferences, int count);

    template <std::size_t Count>
    static unsigned pickPreferred(unsigned mask, const unsigned (&preferences)[Count])
    {
        return pickPreferred(mask, preferences, int{Count});
    }

    /// Returns an element of the low eight bits of each value.
    static QByteArray element(std::initializer_list<unsigned> octets);

    /// Returns octet `index` of an element, or 0 beyond its end.
    static unsigned octet(const QByteArray &element, int index)
    {
        return index < element.size() ? static_cast<std::uint8_t>(element.at(index)) : 0U;
    }

    /// Bytes of the fixed header of every media packet, without contributing sources (RFC 3550, 5.1).
    static constexpr int RtpHeaderSize = 12;
};

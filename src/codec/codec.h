// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <initializer_list>

class QIODevice;

/// One A2DP codec of the sink: offers its capabilities, chooses and takes a configuration, and turns media packets into
/// the bytes that the player reads. Capabilities and configurations are codec-specific information elements, exactly as
/// on the air (A2DP 1.3.2, 4.3 to 4.5). A codec serves one stream after the other.
class Codec {
public:
    // The configured stream; set by setConfiguration().
    int sampleRate = 0; ///< Hz
    int bitDepth = 0;   ///< bits per sample
    int channels = 0;   ///< 1 or 2

    virtual ~Codec() = default;
    /// Media codec type: 0 SBC, 1 MPEG-1,2 audio, 2 MPEG-2,4 AAC (Bluetooth Assigned Numbers, 6.5.1).
    virtual std::uint8_t type() = 0;
    /// What processPacket() writes, in the player's words: "pcm", "aac" or "mp3".
    virtual QString formatName() = 0;
    /// The element offered to phones.
    virtual QByteArray capabilities() = 0;
    /// Chooses a configuration from a phone's capabilities. Octets that the phone did not send count as 0; a field
    /// without a known choice gets the codec's first preference. There is always an answer.
    virtual QByteArray selectConfiguration(const QByteArray &peerCapabilities) = 0;
    /// Takes a configuration, of any length and content, and sets the stream values from it.
    virtual void setConfiguration(const QByteArray &configuration) = 0;
    /// Gets ready for packets of at most `readMtu` bytes; to be called before the first packet of each acquired stream.
    virtual void prepare(int readMtu) = 0;
    /// Consumes one media packet of `length` bytes, from its RTP header on, and writes the result to `out` in one
    /// write. Without a device nothing is done. Of a malformed packet the part before the fault is played and the rest
    /// dropped; no byte behind the packet is looked at.
    virtual void processPacket(const char *packet, int length, QIODevice *out) = 0;

protected:
    Codec() = default;
    Codec(const Codec &) = delete;
    Codec &operator=(const Codec &) = delete;

    /// The first of `count` single-bit preferences that `mask` holds, or the first of all when it holds none.
    static unsigned pickPreferred(unsigned mask, const unsigned *preferences, int count);

    template <std::size_t Count>
    static unsigned pickPreferred(unsigned mask, const unsigned (&preferences)[Count])
    {
        return pickPreferred(mask, preferences, int{Count});
    }

    /// The element of these octets; of each value the low eight bits count.
    static QByteArray element(std::initializer_list<unsigned> octets);

    /// Octet `index` of an element, 0 behind its end.
    static unsigned octet(const QByteArray &element, int index)
    {
        return index < element.size() ? static_cast<std::uint8_t>(element.at(index)) : 0U;
    }

    /// Fixed header of every media packet, without contributing sources (RFC 3550, 5.1).
    static constexpr int RtpHeaderSize = 12;
};

// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

/// Size of the RTP header and the frame count before the frames of a media packet.
constexpr std::size_t SbcPayloadOffset = 13;

/// Decodes the frames of a valid media packet with as little code as possible. It is the baseline of the daemon's time
/// and the reference of its PCM. `decoder` is an sbc::Decoder, or has the same decode(). Returns the number of bytes
/// written to `pcm`, which has the size `room`.
template <typename Decoder>
std::size_t decodePacket(Decoder &decoder, const char *packet, std::size_t length, char *pcm, std::size_t room)
{
    std::size_t position = SbcPayloadOffset;
    std::size_t used = 0;
    while (position < length) {
        std::size_t written = 0;
        const auto *frame = reinterpret_cast<const std::uint8_t *>(packet) + position;
        const int consumed = decoder.decode(frame, length - position, pcm + used, room - used, written);
        if (consumed <= 0)
            break;
        position += static_cast<std::size_t>(consumed);
        used += written;
    }
    return used;
}

} // namespace bench

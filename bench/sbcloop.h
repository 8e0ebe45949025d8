// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace bench {

/// RTP header and frame count before the frames of a media packet.
constexpr std::size_t SbcPayloadOffset = 13;

/// Decodes the frames of a good media packet one after the other, as little code as can do it: what the daemon is
/// measured against, and what its PCM has to equal. The decoder is an sbc::Decoder, or has the same decode(). Returns
/// the bytes of PCM written to `pcm`, which has `room`.
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

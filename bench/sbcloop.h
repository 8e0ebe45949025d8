#pragma once

#include <cstddef>
#include <sbc/sbc.h>

namespace bench {

/// RTP header and frame count before the frames of a media packet.
constexpr std::size_t SbcPayloadOffset = 13;

/// Decodes the frames of a good media packet one after the other, as little code as can do it: what the daemon is
/// measured against, and what its PCM has to equal. Returns the bytes of PCM written to `pcm`, which has `room`.
inline std::size_t decodePacket(sbc_t &decoder, const char *packet, std::size_t length, char *pcm, std::size_t room)
{
    std::size_t position = SbcPayloadOffset;
    std::size_t used = 0;
    while (position < length) {
        std::size_t written = 0;
        const ssize_t consumed = sbc_decode(&decoder, packet + position, length - position, pcm + used, room - used,
                                            &written);
        if (consumed <= 0)
            break;
        position += static_cast<std::size_t>(consumed);
        used += written;
    }
    return used;
}

} // namespace bench

#include "codec/sbcframe.h"

#include <cstdint>

namespace {

constexpr std::uint8_t SyncWord = 0x9C;
constexpr int HeaderSize = 4;
constexpr int BytesPerSample = 2;

enum ChannelMode { Mono = 0, DualChannel = 1, Stereo = 2, JointStereo = 3 };

} // namespace

int SbcFrame::read(const char *data, int size, SbcFrame &frame)
{
    if (size < 1)
        return Truncated;
    const auto *header = reinterpret_cast<const std::uint8_t *>(data);
    if (header[0] != SyncWord)
        return NoSyncWord;
    if (size < HeaderSize)
        return Truncated;

    const int blocks = 4 * (1 + ((header[1] >> 4) & 3));
    const int mode = (header[1] >> 2) & 3;
    const int channels = mode == Mono ? 1 : 2;
    const int bitpool = header[2];
    frame.subbands = (header[1] & 1) != 0 ? 8 : 4;

    const int scaleFactorBytes = frame.subbands * channels / 2;
    int sampleBits = blocks * bitpool;
    if (mode == DualChannel)
        sampleBits *= 2;
    if (mode == JointStereo)
        sampleBits += frame.subbands;

    frame.length = HeaderSize + scaleFactorBytes + (sampleBits + 7) / 8;
    frame.pcmSize = blocks * frame.subbands * channels * BytesPerSample;
    return frame.length <= size ? frame.length : int{Truncated};
}

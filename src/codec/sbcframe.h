#pragma once

/// What the header of an SBC frame says of it (A2DP 1.3.2, 12.6.1 and 12.9).
struct SbcFrame {
    int length;   ///< bytes, header included: 6 or more
    int pcmSize;  ///< bytes of 16-bit PCM that it decodes to: 32 to 512
    int subbands; ///< 4 or 8

    /// Smallest frame that decodes to the most PCM: the most that a packet can grow by.
    static constexpr int MinLengthOfLargestPcm = 12;
    static constexpr int MaxPcmSize = 512;

    /// Why there is no whole frame, in libsbc's numbers.
    enum Fault { Truncated = -1, NoSyncWord = -2 };

    /// Reads the frame that starts at `data`, of which `size` bytes are there. Returns its length when it is there as a
    /// whole, a Fault otherwise.
    static int read(const char *data, int size, SbcFrame &frame);
};

// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <sbc/sbc.h>
#include <vector>

/// libsbc as the decoder's reference. Works around three faults of libsbc: it reads one byte beyond a truncated frame;
/// after a failed first call, all later output is wrong; frames with another number of subbands than the first frame
/// are decoded wrongly.
class Reference {
public:
    Reference() { sbc_init(&sbc_, 0); }
    ~Reference() { sbc_finish(&sbc_); }
    Reference(const Reference &) = delete;
    Reference &operator=(const Reference &) = delete;

    /// Has the interface of sbc::Decoder::decode().
    int decode(const std::uint8_t *data, std::size_t size, char *pcm, std::size_t room, std::size_t &written)
    {
        const bool hasHeader = size >= 4 && data[0] == 0x9C;
        const int subbands = hasHeader && (data[1] & 1) != 0 ? 8 : 4;
        if (!started_ || (hasHeader && subbands != subbands_)) {
            sbc_reinit(&sbc_, 0);
            started_ = false;
        }
        if (hasHeader)
            subbands_ = subbands;
        padded_.assign(data, data + size);
        padded_.push_back(0);
        const ssize_t result = sbc_decode(&sbc_, padded_.data(), size, pcm, room, &written);
        started_ = started_ || result > 0;
        return static_cast<int>(result);
    }

private:
    sbc_t sbc_{};
    std::vector<std::uint8_t> padded_;
    bool started_ = false; ///< set when libsbc has decoded a frame since its last initialisation
    int subbands_ = 0;
};

// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <sbc/sbc.h>

namespace bench {

/// libsbc with the interface of sbc::Decoder. Use it only for valid frames with a constant number of subbands.
class Libsbc {
public:
    Libsbc() { sbc_init(&sbc_, 0); }
    ~Libsbc() { sbc_finish(&sbc_); }
    Libsbc(const Libsbc &) = delete;
    Libsbc &operator=(const Libsbc &) = delete;

    int decode(const std::uint8_t *data, std::size_t size, char *pcm, std::size_t room, std::size_t &written)
    {
        return static_cast<int>(sbc_decode(&sbc_, data, size, pcm, room, &written));
    }

private:
    sbc_t sbc_{};
};

} // namespace bench

// SPDX-License-Identifier: MIT
// The negotiation of SBC. An input: length (1 byte) and octets of a phone's capabilities, then a configuration.

#include "codec/codecsbc.h"
#include "fuzz/configuration.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr fuzzing::ChoiceField Frequency{0, 1, 0xF0, 0x10};
constexpr fuzzing::ChoiceField ChannelMode{0, 1, 0x0F, 0x01};
constexpr fuzzing::ChoiceField Blocks{1, 1, 0xF0, 0x10};
constexpr fuzzing::ChoiceField Subbands{1, 1, 0x0C, 0x04};
constexpr fuzzing::ChoiceField Allocation{1, 1, 0x03, 0x02};
constexpr fuzzing::ChoiceField MinBitpool{2, 1, 0xFF, 0};
constexpr fuzzing::ChoiceField MaxBitpool{3, 1, 0xFF, 0};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static CodecSBC codec;
    fuzzing::Input input(data, size);
    const QByteArray offered = input.bytes(input.byte());
    const QByteArray selected = codec.selectConfiguration(offered);
    REQUIRE(selected.size() == 4);
    for (const auto &field : {Frequency, ChannelMode, Blocks, Subbands, Allocation})
        fuzzing::checkChoice(offered, selected, field);
    REQUIRE(valueOf(selected, MinBitpool) == std::max(valueOf(offered, MinBitpool), 2U));
    REQUIRE(valueOf(selected, MaxBitpool) == std::min(valueOf(offered, MaxBitpool), 250U));
    REQUIRE(codec.selectConfiguration(selected) == selected);
    fuzzing::checkStream(codec, selected);
    fuzzing::checkStream(codec, input.rest());
    return 0;
}

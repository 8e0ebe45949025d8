// SPDX-License-Identifier: MIT
// The negotiation of AAC. An input: length (1 byte) and octets of a phone's capabilities, then a configuration.

#include "codec/codecaac.h"
#include "fuzz/configuration.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr fuzzing::ChoiceField Frequency{1, 2, 0xFFF0, 0x0010};
constexpr fuzzing::ChoiceField Channels{2, 1, 0x0C, 0x04};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static CodecAAC codec;
    fuzzing::Input input(data, size);
    const QByteArray offered = input.bytes(input.byte());
    const QByteArray selected = codec.selectConfiguration(offered);
    REQUIRE(selected.size() == 6);
    REQUIRE(selected.at(0) == '\x80');
    REQUIRE((selected.at(2) & 3) == 0);
    fuzzing::checkChoice(offered, selected, Frequency);
    fuzzing::checkChoice(offered, selected, Channels);
    REQUIRE(selected.mid(3) == (offered.mid(3, 3) + QByteArray(3, '\0')).left(3));
    REQUIRE(codec.selectConfiguration(selected) == selected);
    fuzzing::checkStream(codec, selected);
    fuzzing::checkStream(codec, input.rest());
    return 0;
}

// The negotiation of AAC: length (1 byte) and octets of what a phone offers, then the octets of a configuration.

#include "codec/codecaac.h"
#include "fuzz/configuration.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

constexpr fuzzing::ChoiceField Frequency{1, 2, 0xFFF0, 0x0010};
constexpr fuzzing::ChoiceField Channels{2, 1, 0x0C, 0x04};

constexpr fuzzing::Rate Rates[] = {
    {0x8000, 8000},  {0x4000, 11025}, {0x2000, 12000}, {0x1000, 16000}, {0x0800, 22050}, {0x0400, 24000},
    {0x0200, 32000}, {0x0100, 44100}, {0x0080, 48000}, {0x0040, 64000}, {0x0020, 88200}, {0x0010, 96000},
};
constexpr unsigned OneChannel = 0x08;

void checkStream(CodecAAC &codec, const QByteArray &configuration)
{
    fuzzing::checkStream(codec, configuration, Frequency, Rates, 44100, Channels, OneChannel);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static CodecAAC codec;
    fuzzing::Input input(data, size);
    const QByteArray offered = input.bytes(input.byte());
    const QByteArray selected = codec.selectConfiguration(offered);
    PROMISED(selected.size() == 6);
    PROMISED(selected.at(0) == '\x80');
    PROMISED((selected.at(2) & 3) == 0);
    fuzzing::checkChoice(offered, selected, Frequency);
    fuzzing::checkChoice(offered, selected, Channels);
    PROMISED(selected.mid(3) == (offered.mid(3, 3) + QByteArray(3, '\0')).left(3));
    PROMISED(codec.selectConfiguration(selected) == selected);
    checkStream(codec, selected);
    checkStream(codec, input.rest());
    return 0;
}

#pragma once

#include "codec/codec.h"
#include "fuzz/fuzzing.h"

/// What holds for the negotiation of every codec.
namespace fuzzing {

/// A field of an element that offers its choices as bits and has one of them in a configuration.
struct ChoiceField {
    int octet;         ///< where it is, in the element's octets
    int octets;        ///< 1, or 2 with the higher first
    unsigned mask;     ///< within these octets
    unsigned favorite; ///< for a phone that offers none
};

struct Rate {
    unsigned bit; ///< within the field's mask
    int hz;
};

/// Octets that are not there count as 0.
inline unsigned valueOf(const QByteArray &element, const ChoiceField &field)
{
    unsigned value = 0;
    for (int i = field.octet; i < field.octet + field.octets; ++i)
        value = value << 8 | (i < element.size() ? static_cast<std::uint8_t>(element.at(i)) : 0U);
    return value & field.mask;
}

/// The answer has exactly one choice, one that the phone offered if it offered any.
inline void checkChoice(const QByteArray &offered, const QByteArray &selected, const ChoiceField &field)
{
    const unsigned offer = valueOf(offered, field);
    const unsigned choice = valueOf(selected, field);
    PROMISED(choice != 0 && (choice & (choice - 1)) == 0);
    PROMISED(offer == 0 ? choice == field.favorite : (choice & offer) == choice);
}

/// The stream values are those of the configuration's choices; what is no single choice is `otherHz` and two channels.
template <std::size_t Count>
void checkStream(Codec &codec, const QByteArray &configuration, const ChoiceField &rateField,
                 const Rate (&rates)[Count], int otherHz, const ChoiceField &channelField, unsigned monoBit)
{
    codec.setConfiguration(configuration);
    int hz = otherHz;
    for (const Rate &rate : rates) {
        if (valueOf(configuration, rateField) == rate.bit)
            hz = rate.hz;
    }
    PROMISED(codec.sampleRate == hz);
    PROMISED(codec.channels == (valueOf(configuration, channelField) == monoBit ? 1 : 2));
    PROMISED(codec.bitDepth == 16);
}

} // namespace fuzzing

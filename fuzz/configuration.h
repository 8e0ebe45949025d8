// SPDX-License-Identifier: MIT
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

/// Whatever the configuration, the player is told of a stream that can be.
inline void checkStream(Codec &codec, const QByteArray &configuration)
{
    codec.setConfiguration(configuration);
    PROMISED(codec.sampleRate >= 8000 && codec.sampleRate <= 96000);
    PROMISED(codec.channels == 1 || codec.channels == 2);
    PROMISED(codec.bitDepth == 16);
}

} // namespace fuzzing

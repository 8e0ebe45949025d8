// SPDX-License-Identifier: MIT
#pragma once

#include "codec/codec.h"
#include "fuzz/fuzzing.h"

/// Checks for the negotiation of every codec.
namespace fuzzing {

/// A field of a codec element: a bit for each choice in capabilities, exactly one bit in a configuration.
struct ChoiceField {
    int octet;          ///< index in the element
    int octets;         ///< 1, or 2 with the higher first
    unsigned mask;      ///< within these octets
    unsigned preferred; ///< the choice when the phone offers none
};

/// Returns the field's bits. Missing octets count as 0.
inline unsigned valueOf(const QByteArray &element, const ChoiceField &field)
{
    unsigned value = 0;
    for (int i = field.octet; i < field.octet + field.octets; ++i)
        value = value << 8 | (i < element.size() ? static_cast<std::uint8_t>(element.at(i)) : 0U);
    return value & field.mask;
}

/// Requires exactly one choice in `selected`: an offered one, or the preferred one when none is offered.
inline void checkChoice(const QByteArray &offered, const QByteArray &selected, const ChoiceField &field)
{
    const unsigned offer = valueOf(offered, field);
    const unsigned choice = valueOf(selected, field);
    REQUIRE(choice != 0 && (choice & (choice - 1)) == 0);
    REQUIRE(offer == 0 ? choice == field.preferred : (choice & offer) == choice);
}

/// Requires a possible stream format for any configuration, because the player receives this format.
inline void checkStream(Codec &codec, const QByteArray &configuration)
{
    codec.setConfiguration(configuration);
    REQUIRE(codec.sampleRate >= 8000 && codec.sampleRate <= 96000);
    REQUIRE(codec.channels == 1 || codec.channels == 2);
    REQUIRE(codec.bitDepth == 16);
}

} // namespace fuzzing

// SPDX-License-Identifier: MIT
#include "codec/codec.h"

unsigned Codec::pickPreferred(unsigned mask, const unsigned *preferences, int count)
{
    for (int i = 0; i < count; ++i) {
        if ((mask & preferences[i]) != 0)
            return preferences[i];
    }
    return preferences[0];
}

QByteArray Codec::element(std::initializer_list<unsigned> octets)
{
    QByteArray element;
    for (const unsigned value : octets)
        element.append(static_cast<char>(value & 0xFF));
    return element;
}

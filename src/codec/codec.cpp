#include "codec/codec.h"

unsigned Codec::pickPreferred(unsigned mask, const unsigned *preferences, int count)
{
    for (int i = 0; i < count; ++i) {
        if ((mask & preferences[i]) != 0)
            return preferences[i];
    }
    return preferences[0];
}

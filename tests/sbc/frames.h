// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <random>
#include <vector>

/// Made-up SBC frames.
namespace frames {

using Bytes = std::vector<std::uint8_t>;
using Random = std::mt19937;

/// 0 to `count` - 1.
unsigned below(Random &random, unsigned count);

/// Bits of joint flags and scale factors in a frame of that second byte.
int scaleFactorBits(unsigned fields);

/// Puts the checksum right of a frame that is longer than its scale factors.
void mendChecksum(std::uint8_t *frame);

/// A frame with that second byte, bitpool and a good checksum, at least one byte longer than its bitpool can make it.
/// Scale factors and samples are random, of a kind that is random, too: loud, quiet, sparse, all alike.
Bytes make(Random &random, unsigned fields, unsigned bitpool);

/// A bitpool that frames of that second byte may have.
unsigned possibleBitpool(Random &random, unsigned fields);

/// Frames that libsbc's encoder makes of a sound that wanders, loud enough to be clipped at times.
std::vector<Bytes> encode(Random &random, unsigned fields, unsigned bitpool, int count);

} // namespace frames

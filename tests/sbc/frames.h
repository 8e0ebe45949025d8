// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <random>
#include <vector>

/// Generated SBC frames. `fields` is the second byte of a frame's header.
namespace frames {

using Bytes = std::vector<std::uint8_t>;
using Random = std::mt19937;

/// Returns a number from 0 to `count` - 1.
unsigned below(Random &random, unsigned count);

/// Returns the number of bits of the joint flags and scale factors.
int scaleFactorBits(unsigned fields);

/// Corrects a frame's checksum. The frame must have at least one byte after its scale factors.
void fixChecksum(std::uint8_t *frame);

/// Returns a frame with a correct checksum, at least one byte longer than its bitpool requires. Scale factors and
/// samples are random, and so is their kind: loud, quiet, sparse, all equal.
Bytes make(Random &random, unsigned fields, unsigned bitpool);

/// Returns a random valid bitpool for `fields`.
unsigned possibleBitpool(Random &random, unsigned fields);

/// Returns frames from libsbc's encoder. Their sound varies, and is loud enough to be clipped at times.
std::vector<Bytes> encode(Random &random, unsigned fields, unsigned bitpool, int count);

} // namespace frames

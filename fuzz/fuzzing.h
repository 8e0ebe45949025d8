// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>

// Common code of the fuzz targets. The entry point of each target is libFuzzer's LLVMFuzzerTestOneInput().

/// Requires a condition that must be true for every input. A false one aborts the program, and libFuzzer reports the
/// input.
#define REQUIRE(condition)                                                                                             \
    ((condition) ? static_cast<void>(0) : fuzzing::requirementFailed(#condition, __FILE__, __LINE__))

namespace fuzzing {

/// Reads an input from its beginning, so that a seed can be written by hand. Bytes beyond the end read as 0, byte
/// arrays as shorter or empty.
class Input {
public:
    Input(const std::uint8_t *data, std::size_t size) : data_(data), left_(size) {}

    bool atEnd() const { return left_ == 0; }
    unsigned byte();
    /// Reads two bytes, the higher first.
    unsigned word();
    QByteArray bytes(unsigned length);
    QByteArray rest() { return bytes(static_cast<unsigned>(left_)); }

private:
    const std::uint8_t *data_;
    std::size_t left_;
};

[[noreturn]] void requirementFailed(const char *condition, const char *file, int line);

} // namespace fuzzing

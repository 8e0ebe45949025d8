// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>

/// What the targets have in common. The entry point of each is libFuzzer's LLVMFuzzerTestOneInput.
///
/// A condition that holds for every input. One that does not ends the program, which libFuzzer reports with the input.
#define PROMISED(condition)                                                                                            \
    ((condition) ? static_cast<void>(0) : fuzzing::promiseBroken(#condition, __FILE__, __LINE__))

namespace fuzzing {

/// Takes an input apart from its beginning, so that a seed can be written down by hand. There is always an answer: what
/// lies behind the end counts as 0 or as empty.
class Input {
public:
    Input(const std::uint8_t *data, std::size_t size) : data_(data), left_(size) {}

    bool atEnd() const { return left_ == 0; }
    unsigned byte();
    /// Two bytes, the first the higher.
    unsigned word();
    QByteArray bytes(unsigned length);
    QByteArray rest() { return bytes(static_cast<unsigned>(left_)); }

private:
    const std::uint8_t *data_;
    std::size_t left_;
};

[[noreturn]] void promiseBroken(const char *condition, const char *file, int line);

} // namespace fuzzing

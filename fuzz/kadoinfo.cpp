// SPDX-License-Identifier: MIT
// The device file. An input is the content of the file.

#include "board/kadoinfo.h"

#include "fuzz/fuzzing.h"

#include <QBuffer>

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

/// Reads a device file as the daemon does, in text mode, which removes every carriage return.
bool selectsMelody(const QByteArray &text)
{
    QBuffer file;
    file.setData(text);
    REQUIRE(file.open(QIODevice::ReadOnly | QIODevice::Text));
    return kadoInfo::selectsMelody(file);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    QByteArray text = fuzzing::Input(data, size).rest();
    const bool melody = selectsMelody(text);
    text.replace('\r', "");

    const auto isAscii = [](char byte) { return byte != '\0' && static_cast<std::uint8_t>(byte) < 0x80; };
    if (!std::all_of(text.begin(), text.end(), isAscii))
        return 0;

    // A match needs these words in the text, unless an encoding or an entity writes them differently.
    if (melody && !text.contains("encoding") && !text.contains('&'))
        REQUIRE(text.contains("<settings") && text.contains("<bt") && text.contains("melody"));
    // Text after a match does not change the result.
    REQUIRE(selectsMelody("<kado><settings> <bt>melody</bt>" + text));
    return 0;
}

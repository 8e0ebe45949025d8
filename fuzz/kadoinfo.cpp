// SPDX-License-Identifier: MIT
// The device information file: the input is the file.

#include "board/kadoinfo.h"

#include "fuzz/fuzzing.h"

#include <QBuffer>

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

// As the daemon opens it: text mode leaves out every carriage return.
bool selectsMelody(const QByteArray &text)
{
    QBuffer file;
    file.setData(text);
    PROMISED(file.open(QIODevice::ReadOnly | QIODevice::Text));
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

    // The words are there as they are, unless an encoding or an entity spells them otherwise.
    if (melody && !text.contains("encoding") && !text.contains('&'))
        PROMISED(text.contains("<settings") && text.contains("<bt") && text.contains("melody"));
    // What was found stands, whatever follows.
    PROMISED(selectsMelody("<kado><settings> <bt>melody</bt>" + text));
    return 0;
}

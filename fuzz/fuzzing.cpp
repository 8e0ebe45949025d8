// SPDX-License-Identifier: MIT
#include "fuzz/fuzzing.h"

#include <QString>
#include <QtGlobal>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

extern "C" int LLVMFuzzerInitialize(int * /*argc*/, char *** /*argv*/)
{
    // Drop messages after they were formatted as in the daemon, because standard error belongs to libFuzzer.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext & /*context*/, const QString & /*message*/) {
        if (type == QtFatalMsg)
            std::abort();
    });
    return 0;
}

unsigned fuzzing::Input::byte()
{
    if (left_ == 0)
        return 0;
    --left_;
    return *data_++;
}

unsigned fuzzing::Input::word()
{
    const unsigned high = byte();
    return high << 8 | byte();
}

QByteArray fuzzing::Input::bytes(unsigned length)
{
    const std::size_t count = std::min<std::size_t>(length, left_);
    QByteArray bytes(reinterpret_cast<const char *>(data_), static_cast<int>(count));
    data_ += count;
    left_ -= count;
    return bytes;
}

void fuzzing::requirementFailed(const char *condition, const char *file, int line)
{
    std::fprintf(stderr, "%s:%d: false: %s\n", file, line, condition);
    std::abort();
}

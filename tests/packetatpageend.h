// SPDX-License-Identifier: MIT
#pragma once

#include "tests/sbc/pageend.h"

#include <QByteArray>

/// A copy of a packet. An unmapped page follows it, so that a read beyond its end crashes the test.
class PacketAtPageEnd {
public:
    explicit PacketAtPageEnd(const QByteArray &packet) : size_(static_cast<size_t>(packet.size())), memory_(size_)
    {
        std::memcpy(memory_.last(size_), packet.constData(), size_);
    }

    const char *data() const { return memory_.last(size_); }
    int size() const { return static_cast<int>(size_); }

private:
    size_t size_;
    PageEnd memory_;
};

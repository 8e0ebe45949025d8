// SPDX-License-Identifier: MIT
#include "bench/pump.h"

#include "bench/fail.h"
#include "bench/process.h"
#include "bench/sbcloop.h"

#include <cstring>
#include <ctime>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr double NsPerUs = 1000;
constexpr double NsPerSecond = 1e9;
// So many packets and their PCM fit into the sockets, so that no write blocks.
constexpr int MaxInFlight = 16;
// A process that takes longer hangs.
constexpr timeval ReceiveTimeout{5, 0};
// Wait so long before reading the CPU time, because the process may still work after it has written the last byte.
constexpr std::int64_t TrailingWorkNs = 10'000'000;

void sleepUntil(std::int64_t ns)
{
    const timespec time{ns / static_cast<std::int64_t>(NsPerSecond), ns % static_cast<std::int64_t>(NsPerSecond)};
    while (::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) != 0) {
    }
}

} // namespace

Pump::Pump(const Process &process, int packetSocket, int pcmSocket, const Material &material)
    : process_(process), packetSocket_(packetSocket), pcmSocket_(pcmSocket), material_(material)
{
    ::prctl(PR_SET_TIMERSLACK, 1UL);
    ::setsockopt(pcmSocket_, SOL_SOCKET, SO_RCVTIMEO, &ReceiveTimeout, sizeof ReceiveTimeout);
}

Pump::Run Pump::run(Pace pace, int packets)
{
    Run run;
    run.latencyUs.reserve(static_cast<std::size_t>(packets));
    prepareExpected(packets);
    const auto pcmSize = static_cast<std::size_t>(material_.pcmSize);

    const std::int64_t before = process_.cpuNs();
    if (pace == Pace::RealTime) {
        const std::int64_t start = nowNs();
        for (int i = 0; i < packets; ++i) {
            sleepUntil(start + static_cast<std::int64_t>(i * material_.seconds * NsPerSecond));
            const std::int64_t sent = nowNs();
            send();
            receive(static_cast<std::size_t>(i + 1) * pcmSize);
            run.latencyUs.push_back(static_cast<double>(nowNs() - sent) / NsPerUs);
        }
    } else {
        for (int i = 0; i < packets; ++i) {
            if (i >= MaxInFlight)
                receive(static_cast<std::size_t>(i - MaxInFlight + 1) * pcmSize);
            send();
        }
        receive(expected_.size());
    }
    sleepUntil(nowNs() + TrailingWorkNs);
    run.cpuUs = static_cast<double>(process_.cpuNs() - before) / NsPerUs / packets;

    if (receivedSize_ != expected_.size() || std::memcmp(received_.data(), expected_.data(), receivedSize_) != 0)
        fail(QStringLiteral("the PCM differs from the reference"));
    return run;
}

/// Decodes the packets of the next run and allocates the receive buffer, before the measurement.
void Pump::prepareExpected(int packets)
{
    const auto size = static_cast<std::size_t>(packets) * static_cast<std::size_t>(material_.pcmSize);
    expected_.assign(size, 0);
    received_.assign(size, 1);
    receivedSize_ = 0;
    std::size_t used = 0;
    for (int i = 0; i < packets; ++i) {
        const QByteArray &packet = material_.packets.at((position_ + i) % material_.packets.size());
        used += decodePacket(reference_, packet.constData(), static_cast<std::size_t>(packet.size()),
                             expected_.data() + used, size - used);
    }
    if (used != size)
        fail(QStringLiteral("the packets have PCM of different sizes"));
}

void Pump::send()
{
    const QByteArray &packet = material_.packets.at(position_);
    position_ = (position_ + 1) % static_cast<int>(material_.packets.size());
    if (::send(packetSocket_, packet.constData(), static_cast<std::size_t>(packet.size()), MSG_NOSIGNAL)
        != packet.size())
        fail(QStringLiteral("packet socket: %1").arg(QString::fromLocal8Bit(std::strerror(errno))));
}

/// Reads until `bytes` bytes of the run have been received.
void Pump::receive(std::size_t bytes)
{
    while (receivedSize_ < bytes) {
        const ssize_t size = ::read(pcmSocket_, received_.data() + receivedSize_, received_.size() - receivedSize_);
        if (size <= 0)
            fail(size == 0 ? QStringLiteral("the PCM ended")
                           : QStringLiteral("no PCM: %1").arg(QString::fromLocal8Bit(std::strerror(errno))));
        receivedSize_ += static_cast<std::size_t>(size);
    }
}

} // namespace bench

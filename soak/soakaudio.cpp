// SPDX-License-Identifier: MIT
#include "soak/soakaudio.h"

#include <QElapsedTimer>

#include <algorithm>

namespace sim {

namespace {

// Several times longer than a busy machine takes.
constexpr int TimeoutMs = 30'000;

// A packet takes less than a millisecond from the phone to the client. A busy machine may delay one of the three
// processes by a few tenths of a second. A daemon that waits for BlueZ takes longer than this, because BlueZ here
// answers only after the packet was received.
constexpr int MaxLatencyMs = 1000;

// Sending waits for a client with this backlog in bytes, well below the daemon's limit.
constexpr int MaxLag = 1024 * 1024;

// Bytes that fill the daemon's backlog for a client (4 MiB) and, with a reserve, the kernel's socket buffers.
constexpr int MoreThanBacklog = (4 * 1024 + 1536) * 1024;

} // namespace

void SoakAudio::setStream(Phone &phone, const SoakFormat &format)
{
    phone_ = &phone;
    format_ = &format;
}

// --- Clients

void SoakAudio::connectClients(int count)
{
    for (int i = 0; i < count; ++i) {
        pending_.push_back(std::make_unique<Client>());
        report_.expect(pending_.back()->player.connectAudio(), "a client cannot connect");
    }
}

void SoakAudio::disconnectClient()
{
    current_->player.disconnectAudio();
    current_->disconnected = true;
}

void SoakAudio::pauseReading(bool paused)
{
    current_->player.pauseReading(paused);
    current_->reads = !paused;
}

// --- Packets

const QByteArray &SoakAudio::next()
{
    position_ = (position_ + 1) % static_cast<int>(format_->packets.size());
    return format_->packets.at(position_);
}

void SoakAudio::sendPacket(const QByteArray &packet)
{
    report_.expect(phone_->send(packet), "the daemon has stopped reading the stream");
    report_.count("packets sent");
    if (!pending_.empty()) {
        if (current_)
            replaced_.push_back(std::move(current_));
        current_ = std::move(pending_.front());
        pending_.pop_front();
    }
    if (!current_) // the daemon does not decode without a client
        return;
    current_->expected += format_->codec == SoakFormat::Sbc ? expectedPcm(packet, *decoder_) : expectedAdts(packet);
    const auto lag = [this] { return current_->expected.size() - current_->player.heard().size(); };
    if (!current_->disconnected && current_->reads && lag() > MaxLag)
        waitFor([&] { return lag() < MaxLag / 2; }, TimeoutMs);
}

void SoakAudio::send(int packets, bool damage)
{
    position_ = random_.below(static_cast<int>(format_->packets.size()));
    for (int i = 0; i < packets; ++i)
        sendPacket(damage && random_.oneIn(2) ? damaged(next(), random_) : next());
}

void SoakAudio::dropPackets()
{
    pauseReading(true);
    std::vector<int> ends; // size of the expected audio after each packet
    while (current_->expected.size() < MoreThanBacklog) {
        sendPacket(next());
        ends.push_back(static_cast<int>(current_->expected.size()));
    }
    settle();
    pauseReading(false);
    size_t dropped = 0;
    const auto isLogged = [&] {
        const QString lines = board_.daemon.logTexts().filter("Audio client was too slow").join(QString());
        dropped = lines.trimmed().section(' ', -1).toUInt();
        return dropped > 0;
    };
    report_.await(isLogged, "no packets were dropped");
    report_.expect(dropped < ends.size(), "all packets were dropped");
    current_->expected.truncate(ends.at(ends.size() - 1 - dropped));
    check();
}

// --- Received audio

void SoakAudio::settle()
{
    report_.await([this] { return phone_->drained(); }, "the daemon does not read the stream");
    report_.expect(board_.control.property("AdapterPresent").isValid(), "the daemon does not answer");
}

void SoakAudio::check()
{
    constexpr double NsPerMs = 1e6;
    for (const std::unique_ptr<Client> &client : replaced_) {
        compare(*client, TimeoutMs);
        report_.await([&] { return !client->player.audioConnected(); },
                      "the daemon did not disconnect a replaced client");
    }
    replaced_.clear();
    if (!hasClient())
        return;
    compare(*current_, TimeoutMs);
    QElapsedTimer clock;
    clock.start();
    sendPacket(next());
    compare(*current_, MaxLatencyMs);
    report_.latency(static_cast<double>(clock.nsecsElapsed()) / NsPerMs);
}

void SoakAudio::compare(Client &client, int timeoutMs)
{
    if (client.disconnected)
        return;
    const QByteArray &heard = client.player.heard();
    const QByteArray &expected = client.expected;
    waitFor([&] { return heard.size() >= expected.size() || !client.player.audioConnected(); }, timeoutMs);
    const auto common = std::min(heard.size(), expected.size());
    const auto alike = std::mismatch(heard.begin(), heard.begin() + common, expected.begin()).first - heard.begin();
    const QString fault = "expected %1 bytes of audio within %2 ms, received %3, first wrong byte: %4";
    report_.expect(heard == expected, fault.arg(expected.size()).arg(timeoutMs).arg(heard.size()).arg(alike));
    report_.count("bytes of audio compared", heard.size());
    client.player.clearHeard();
    client.expected.clear();
}

void SoakAudio::expectEnd(bool read)
{
    if (hasClient()) {
        report_.await([this] { return !current_->player.audioConnected(); },
                      "the daemon did not disconnect the client at the end of the stream");
        if (!read)
            current_->expected.truncate(current_->player.heard().size());
        compare(*current_, TimeoutMs);
    }
    current_.reset();
}

} // namespace sim

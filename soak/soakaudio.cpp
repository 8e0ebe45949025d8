// SPDX-License-Identifier: MIT
#include "soak/soakaudio.h"

#include <QElapsedTimer>

#include <algorithm>

namespace sim {

namespace {

// A machine that does other things as well, several times over.
constexpr int PatienceMs = 30'000;

// A packet takes less than a millisecond from the phone to the client. A machine that does other things as well may let
// one of the three processes wait for a few tenths of a second, but not this long. A daemon that waits for BlueZ is
// later: BlueZ here answers no earlier than the packet is heard.
constexpr int LatestMs = 1000;

// As far as a client may lag behind before sending waits for it, well below what the daemon keeps for one.
constexpr int LagLimit = 1024 * 1024;

// What the daemon keeps for a client that does not read, and more than the kernel takes before that.
constexpr int MoreThanIsKept = (4 * 1024 + 1536) * 1024;

} // namespace

void SoakAudio::follow(Phone &phone, const SoakFormat &format)
{
    phone_ = &phone;
    format_ = &format;
}

// --- Clients

void SoakAudio::connectClients(int count)
{
    for (int i = 0; i < count; ++i) {
        waiting_.push_back(std::make_unique<Client>());
        report_.insist(waiting_.back()->player.connectAudio(), "no client can connect");
    }
}

void SoakAudio::leave()
{
    current_->player.hangUpAudio();
    current_->left = true;
}

void SoakAudio::pauseReading(bool paused)
{
    current_->player.pauseReading(paused);
    current_->reads = !paused;
}

// --- Packets

const QByteArray &SoakAudio::next()
{
    place_ = (place_ + 1) % static_cast<int>(format_->packets.size());
    return format_->packets.at(place_);
}

void SoakAudio::sendPacket(const QByteArray &packet)
{
    report_.insist(phone_->send(packet), "the daemon has stopped reading the stream");
    report_.count("packets sent");
    if (!waiting_.empty()) {
        if (current_)
            replaced_.push_back(std::move(current_));
        current_ = std::move(waiting_.front());
        waiting_.pop_front();
    }
    if (!current_) // nothing is decoded
        return;
    current_->expected += format_->codec == SoakFormat::Sbc ? heard::ofSbc(packet, *decoder_) : heard::ofAac(packet);
    const auto lag = [this] { return current_->expected.size() - current_->player.heard().size(); };
    if (!current_->left && current_->reads && lag() > LagLimit)
        waitFor([&] { return lag() < LagLimit / 2; }, PatienceMs);
}

void SoakAudio::send(int packets, bool damage)
{
    place_ = random_.below(static_cast<int>(format_->packets.size()));
    for (int i = 0; i < packets; ++i)
        sendPacket(damage && random_.oneIn(2) ? damaged(next(), random_) : next());
}

void SoakAudio::dropPackets()
{
    pauseReading(true);
    std::vector<int> ends; // of what each packet adds
    while (current_->expected.size() < MoreThanIsKept) {
        sendPacket(next());
        ends.push_back(static_cast<int>(current_->expected.size()));
    }
    settle();
    pauseReading(false);
    size_t dropped = 0;
    const auto isTold = [&] {
        const QString told = board_.daemon.logTexts().filter("Audio client was too slow").join(QString());
        dropped = told.trimmed().section(' ', -1).toUInt();
        return dropped > 0;
    };
    report_.await(isTold, "no packets were dropped");
    report_.insist(dropped < ends.size(), "all packets were dropped");
    current_->expected.truncate(ends.at(ends.size() - 1 - dropped));
    check();
}

// --- What is heard

void SoakAudio::settle()
{
    report_.await([this] { return phone_->drained(); }, "the daemon does not read the stream");
    report_.insist(board_.control.property("AdapterPresent").isValid(), "the daemon does not answer");
}

void SoakAudio::check()
{
    constexpr double NsPerMs = 1e6;
    for (const std::unique_ptr<Client> &client : replaced_) {
        compare(*client, PatienceMs);
        report_.await([&] { return !client->player.audioConnected(); }, "a client that was replaced is not hung up");
    }
    replaced_.clear();
    if (!clientListens())
        return;
    compare(*current_, PatienceMs);
    QElapsedTimer clock;
    clock.start();
    sendPacket(next());
    compare(*current_, LatestMs);
    report_.latency(static_cast<double>(clock.nsecsElapsed()) / NsPerMs);
}

void SoakAudio::compare(Client &client, int patienceMs)
{
    if (client.left)
        return;
    const QByteArray &heard = client.player.heard();
    const QByteArray &expected = client.expected;
    waitFor([&] { return heard.size() >= expected.size() || !client.player.audioConnected(); }, patienceMs);
    const auto common = std::min(heard.size(), expected.size());
    const auto alike = std::mismatch(heard.begin(), heard.begin() + common, expected.begin()).first - heard.begin();
    const QString fault = "of %1 bytes to be heard within %2 ms, %3 were, and from byte %4 on they are wrong";
    report_.insist(heard == expected, fault.arg(expected.size()).arg(patienceMs).arg(heard.size()).arg(alike));
    report_.count("bytes of audio compared", heard.size());
    client.player.forgetHeard();
    client.expected.clear();
}

void SoakAudio::ended(bool read)
{
    if (clientListens()) {
        report_.await([this] { return !current_->player.audioConnected(); }, "the client is not hung up at the end");
        if (!read)
            current_->expected.truncate(current_->player.heard().size());
        compare(*current_, PatienceMs);
    }
    current_.reset();
}

} // namespace sim

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

SoakAudio::SoakAudio(Board &board, SoakReport &report, SoakRandom &random)
    : board_(board), report_(report), random_(random), decoder_(std::make_unique<SoakDecoder>())
{
}

void SoakAudio::follow(Phone &phone, const SoakFormat &format)
{
    phone_ = &phone;
    format_ = &format;
}

bool SoakAudio::connectClients(int count)
{
    for (int i = 0; i < count; ++i) {
        waiting_.push_back(std::make_unique<Client>());
        if (!report_.insist(waiting_.back()->player.connectAudio(), QStringLiteral("no client can connect")))
            return false;
    }
    return true;
}

bool SoakAudio::connectAndLeave(int count)
{
    for (int i = 0; i < count; ++i) {
        Player player;
        if (!report_.insist(player.connectAudio(), QStringLiteral("no client can connect")))
            return false;
    }
    report_.injected("client left before its first byte", count);
    return true;
}

const SoakPacket &SoakAudio::next()
{
    place_ = (place_ + 1) % static_cast<int>(format_->packets.size());
    return format_->packets.at(place_);
}

bool SoakAudio::sendPacket(const SoakPacket &packet, QByteArray &pcm)
{
    if (!report_.insist(phone_->send(packet.bytes), QStringLiteral("the daemon has stopped reading the stream")))
        return false;
    report_.sent(packet.seconds);
    pcm = decoder_->heardOf(packet);
    return true;
}

bool SoakAudio::sendPacket(const SoakPacket &packet)
{
    if (!waiting_.empty()) {
        if (current_)
            replaced_.push_back(std::move(current_));
        current_ = std::move(waiting_.front());
        waiting_.pop_front();
    }
    if (!current_) { // nobody listens, nothing is decoded
        report_.sent(packet.seconds);
        return report_.insist(phone_->send(packet.bytes), QStringLiteral("the daemon has stopped reading the stream"));
    }
    QByteArray pcm;
    if (!sendPacket(packet, pcm))
        return false;
    if (current_->left)
        return true;
    current_->expected += pcm;
    current_->seconds += packet.seconds;
    return keepUp();
}

bool SoakAudio::keepUp()
{
    const Client &client = *current_;
    const auto lag = [&] { return client.expected.size() - client.player.heard().size(); };
    return !client.reads || lag() < LagLimit
        || report_.insist(waitFor([&] { return lag() < LagLimit / 2; }, PatienceMs),
                          QStringLiteral("the client hears nothing any more"));
}

bool SoakAudio::send(int packets)
{
    place_ = random_.below(static_cast<int>(format_->packets.size()));
    for (int i = 0; i < packets; ++i) {
        if (!sendPacket(next()))
            return false;
    }
    return true;
}

bool SoakAudio::sendDamaged(int packets)
{
    place_ = random_.below(static_cast<int>(format_->packets.size()));
    for (int i = 0; i < packets; ++i) {
        const SoakPacket &packet = next();
        if (random_.oneIn(2)) {
            report_.injected("damaged packet");
            if (!sendPacket(damaged(packet, format_->codec, random_)))
                return false;
        } else if (!sendPacket(packet)) {
            return false;
        }
    }
    return true;
}

bool SoakAudio::sendEmpty()
{
    report_.injected("empty packet");
    return send(1) && sendPacket({}) && send(1);
}

bool SoakAudio::check()
{
    for (const std::unique_ptr<Client> &client : replaced_) {
        if (!checkClient(*client))
            return false;
    }
    replaced_.clear();
    return !current_ || (checkClient(*current_) && measure());
}

/// Sends one packet while no other is on its way.
bool SoakAudio::measure()
{
    constexpr double NsPerMs = 1e6;
    if (current_->left || !current_->reads || !current_->player.audioConnected())
        return true;
    QElapsedTimer clock;
    clock.start();
    if (!sendPacket(next()))
        return false;
    const bool heard = waitFor([&] { return current_->player.heard().size() >= current_->expected.size(); }, LatestMs);
    report_.latency(static_cast<double>(clock.nsecsElapsed()) / NsPerMs);
    return report_.insist(heard, QStringLiteral("a packet was not heard within %1 ms").arg(LatestMs))
        && checkClient(*current_);
}

bool SoakAudio::checkClient(Client &client)
{
    if (client.left)
        return true;
    const QByteArray &heard = client.player.heard();
    waitFor([&] { return heard.size() >= client.expected.size() || !client.player.audioConnected(); }, PatienceMs);
    const bool right = compare(heard, client.expected, client.seconds);
    client.player.forgetHeard();
    client.expected.clear();
    client.seconds = 0;
    return right;
}

bool SoakAudio::compare(const QByteArray &heard, const QByteArray &expected, double seconds)
{
    report_.heard(heard.size(), seconds);
    if (heard == expected)
        return true;
    const auto common = std::min(heard.size(), expected.size());
    const auto first = std::mismatch(heard.begin(), heard.begin() + common, expected.begin()).first - heard.begin();
    report_.wrongBytes(std::max(heard.size(), expected.size()) - first);
    return report_.insist(false,
                          QStringLiteral("of %1 bytes to be heard, %2 were, and from byte %3 on they are wrong")
                              .arg(expected.size())
                              .arg(heard.size())
                              .arg(first));
}

bool SoakAudio::settle()
{
    return report_.insist(waitFor([this] { return phone_->drained(); }, PatienceMs),
                          QStringLiteral("the daemon does not read the stream"))
        && report_.insist(board_.control.property(QStringLiteral("AdapterPresent")).isValid(),
                          QStringLiteral("the daemon does not answer"));
}

bool SoakAudio::swapClient()
{
    if (!check() || !settle())
        return false;
    constexpr int MostPackets = 1000; // it is due with the first, or soon after
    auto client = std::make_unique<Client>();
    if (!report_.insist(client->player.connectAudio(), QStringLiteral("no client can connect")))
        return false;
    const QByteArray &late = client->player.heard();
    const QByteArray &early = current_->player.heard();
    QByteArray all;
    QByteArray latest;
    place_ = random_.below(static_cast<int>(format_->packets.size()));
    for (int i = 0; late.isEmpty() && i < MostPackets; ++i) {
        if (!sendPacket(next(), latest))
            return false;
        all += latest;
        if (current_->left ? !settle() : !waitFor([&] { return early.size() + late.size() >= all.size(); }, PatienceMs))
            break;
    }
    if (!report_.insist(!late.isEmpty(), QStringLiteral("a new client is not taken in")))
        return false;
    // One packet at a time: what the new one has heard is the latest, whole or, from one that has left, a few of them.
    if (current_->left)
        waitFor([&] { return late.size() >= latest.size() && all.endsWith(late); }, PatienceMs);
    const QByteArray expected = current_->left ? all.right(std::max(latest.size(), late.size())) : all;
    const bool right = compare(current_->left ? late : early + late, expected, 0);
    waitFor([&] { return !current_->player.audioConnected(); }, PatienceMs);
    if (!report_.insist(current_->left || !current_->player.audioConnected(),
                        QStringLiteral("the earlier client is not hung up")))
        return false;
    current_ = std::move(client);
    current_->player.forgetHeard();
    return right;
}

bool SoakAudio::leave()
{
    if (!check())
        return false;
    current_->player.hangUpAudio();
    current_->left = true;
    return true;
}

void SoakAudio::pauseReading(bool paused)
{
    current_->player.pauseReading(paused);
    current_->reads = !paused;
}

bool SoakAudio::dropPackets()
{
    if (!check())
        return false;
    pauseReading(true);
    report_.forgetDropped();
    QList<QByteArray> packets;
    qint64 size = 0;
    while (size < MoreThanIsKept) {
        QByteArray pcm;
        if (!sendPacket(next(), pcm))
            return false;
        size += pcm.size();
        packets.append(pcm);
    }
    if (!settle())
        return false;
    pauseReading(false);
    if (!report_.insist(waitFor([this] { return report_.droppedPackets() >= 0; }, PatienceMs),
                        QStringLiteral("no packets were dropped")))
        return false;
    const int dropped = report_.droppedPackets();
    report_.injected("packet dropped, client not reading", dropped);
    for (int i = 0; i < static_cast<int>(packets.size()) - dropped; ++i)
        current_->expected += packets.at(i);
    return check();
}

bool SoakAudio::endedForSlowClient()
{
    waitFor([this] { return !current_->player.audioConnected(); }, PatienceMs);
    current_->expected.truncate(current_->player.heard().size());
    return ended();
}

bool SoakAudio::ended()
{
    if (current_ && !current_->left
        && !report_.insist(waitFor([this] { return !current_->player.audioConnected(); }, PatienceMs),
                           QStringLiteral("the client is not hung up at the end of the stream")))
        return false;
    const bool right = check();
    current_.reset();
    return right;
}

} // namespace sim

// SPDX-License-Identifier: MIT
#pragma once

#include "fuzz/heard.h"
#include "sim/board.h"
#include "soak/soakmaterial.h"
#include "soak/soakreport.h"

#include <deque>
#include <memory>
#include <vector>

namespace sim {

/// The way of the audio, from the phone's packets to the clients of the local socket: sends, and insists that each
/// client hears to the byte what it has to.
class SoakAudio {
public:
    SoakAudio(Board &board, SoakReport &report, SoakRandom &random) : board_(board), report_(report), random_(random) {}

    /// A new adapter, and with it a new decoder.
    void adapterIsNew() { decoder_ = std::make_unique<Reference>(); }
    void follow(Phone &phone, const SoakFormat &format);

    /// Clients that connect; each of the next packets is for another of them, those that follow for the last.
    void connectClients(int count);
    int waiting() const { return static_cast<int>(waiting_.size()); }
    bool clientListens() const { return current_ && !current_->left; }
    void leave();
    void pauseReading(bool paused);

    /// Sends packets from some place of the music on, about every second of them damaged on request, without looking at
    /// what is heard.
    void send(int packets, bool damage = false);
    /// Sends to a client that does not read until the daemon has dropped packets: the client hears all but those.
    void dropPackets();

    /// The daemon has read everything, has done with it, and has seen who has connected.
    void settle();
    /// Everything that was sent is heard, and one more packet soon after it is sent.
    void check();
    /// The stream has ended: what was sent is heard to the last byte, and the client is hung up. A client that did not
    /// read hears the beginning of it.
    void ended(bool read = true);

private:
    struct Client {
        Player player; ///< only its audio
        QByteArray expected;
        bool left = false;
        bool reads = true;
    };

    const QByteArray &next();
    void sendPacket(const QByteArray &packet);
    void compare(Client &client, int patienceMs);

    Board &board_;
    SoakReport &report_;
    SoakRandom &random_;
    std::unique_ptr<Reference> decoder_ = std::make_unique<Reference>();
    Phone *phone_ = nullptr;
    const SoakFormat *format_ = nullptr;
    int place_ = 0;
    std::deque<std::unique_ptr<Client>> waiting_;
    std::vector<std::unique_ptr<Client>> replaced_;
    std::unique_ptr<Client> current_;
};

} // namespace sim

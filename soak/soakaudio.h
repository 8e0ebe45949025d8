// SPDX-License-Identifier: MIT
#pragma once

#include "fuzz/expectedaudio.h"
#include "sim/board.h"
#include "soak/soakmaterial.h"
#include "soak/soakreport.h"

#include <deque>
#include <memory>
#include <vector>

namespace sim {

/// The audio of a soak: sends a phone's packets, and checks that each client of the audio socket receives exactly the
/// expected bytes.
class SoakAudio {
public:
    SoakAudio(Board &board, SoakReport &report, SoakRandom &random) : board_(board), report_(report), random_(random) {}

    /// Starts with a fresh reference decoder. Call when the daemon has a new adapter, and with it a new decoder.
    void resetDecoder() { decoder_ = std::make_unique<Reference>(); }
    void setStream(Phone &phone, const SoakFormat &format);

    /// Connects clients. The daemon accepts one client with each packet, and each new client replaces the one before.
    void connectClients(int count);
    /// Returns the number of clients that the daemon has not accepted yet.
    int pendingClients() const { return static_cast<int>(pending_.size()); }
    bool hasClient() const { return current_ && !current_->disconnected; }
    void disconnectClient();
    void pauseReading(bool paused);

    /// Sends packets from a random position in the music. Damages about every second packet if `damage` is set. Does
    /// not check the received audio.
    void send(int packets, bool damage = false);
    /// Sends to a client that does not read, until the daemon drops packets. Expects the client to receive all others.
    void dropPackets();

    /// Waits until the daemon has read and processed all packets and has seen all new clients.
    void settle();
    /// Expects that all packets have been received, and that one more packet is received soon after it is sent.
    void check();
    /// Expects that the daemon has disconnected the client after the stream's last byte. With `read` false, the client
    /// did not read in time and may have received only the beginning.
    void expectEnd(bool read = true);

private:
    struct Client {
        Player player; ///< used only as an audio client
        QByteArray expected;
        bool disconnected = false;
        bool reads = true;
    };

    const QByteArray &next();
    void sendPacket(const QByteArray &packet);
    void compare(Client &client, int timeoutMs);

    Board &board_;
    SoakReport &report_;
    SoakRandom &random_;
    std::unique_ptr<Reference> decoder_ = std::make_unique<Reference>();
    Phone *phone_ = nullptr;
    const SoakFormat *format_ = nullptr;
    int position_ = 0;
    std::deque<std::unique_ptr<Client>> pending_;
    std::vector<std::unique_ptr<Client>> replaced_;
    std::unique_ptr<Client> current_;
};

} // namespace sim

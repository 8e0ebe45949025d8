#pragma once

#include "sim/board.h"
#include "soak/soakmaterial.h"
#include "soak/soakreport.h"

#include <deque>
#include <functional>
#include <memory>
#include <vector>

namespace sim {

/// The way of the audio, from the phone's packets to the clients of the local socket: sends, and insists that each
/// client hears to the byte what it has to. Steps return whether all was as it should be.
class SoakAudio {
public:
    SoakAudio(Board &board, SoakReport &report, SoakRandom &random);

    /// A new adapter, and with it a new decoder.
    void adapterIsNew() { decoder_ = std::make_unique<SoakDecoder>(); }
    void follow(Phone &phone, const SoakFormat &format);

    /// There is a client that the stream is for, whether or not it has left or reads.
    bool attached() const { return current_ != nullptr; }
    bool clientListens() const { return current_ && !current_->left; }
    int waiting() const { return static_cast<int>(waiting_.size()); }

    /// Clients that connect and wait for the next stream's packets, one taking over from the other with each. Not while
    /// there is one.
    bool connectClients(int count);
    /// Clients that leave at once: no packet is for them.
    bool connectAndLeave(int count);

    /// Sends packets from some place of the music on, without looking at what is heard.
    bool send(int packets);
    /// The same; about every second is damaged.
    bool sendDamaged(int packets);
    /// One without a single byte between two packets.
    bool sendEmpty();
    /// Everything that was sent is heard, and one more packet soon after it is sent.
    bool check();
    /// The daemon has read everything, and has done with it.
    bool settle();

    /// A new client takes over in mid-stream, from one that listens or has left.
    bool swapClient();
    bool leave();
    void pauseReading(bool paused);
    /// The client reads nothing until the daemon has dropped packets; returns whether it then hears all but those.
    bool dropPackets();

    /// The stream has ended: what was sent is heard to the last byte, and the client is hung up.
    bool ended();
    /// The same for a client that did not read: of what was sent it hears the beginning.
    bool endedForSlowClient();

private:
    struct Client {
        Player player; ///< only its audio
        QByteArray expected;
        double seconds = 0;
        bool left = false;
        bool reads = true;
    };

    const SoakPacket &next();
    bool sendPacket(const SoakPacket &packet);
    bool sendPacket(const SoakPacket &packet, QByteArray &pcm);
    bool keepUp();
    bool checkClient(Client &client);
    bool measure();
    bool compare(const QByteArray &heard, const QByteArray &expected, double seconds);

    Board &board_;
    SoakReport &report_;
    SoakRandom &random_;
    std::unique_ptr<SoakDecoder> decoder_;
    Phone *phone_ = nullptr;
    const SoakFormat *format_ = nullptr;
    int place_ = 0;
    std::deque<std::unique_ptr<Client>> waiting_;
    std::vector<std::unique_ptr<Client>> replaced_;
    std::unique_ptr<Client> current_;
};

} // namespace sim

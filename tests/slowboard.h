#pragma once

#include "streamingboard.h"

#include <QTimer>

#include <array>

namespace boardtest {

inline constexpr int LateMs = 4000; // BlueZ gives up an endpoint that has not answered for 3 s

// A daemon that waits for BlueZ exceeds this by seconds; a loaded machine does not.
inline constexpr int LimitMs = 1000;

inline constexpr int PaceMs = 20; // a phone's, of its packets

/// A board whose BlueZ leaves calls unanswered, and the latency of all that the daemon has to go on with.
class SlowBoard {
public:
    sim::Board board;
    std::unique_ptr<sim::Phone> phone = newPhone();

    std::unique_ptr<sim::Phone> newPhone()
    {
        return std::make_unique<sim::Phone>(board.bluez, PhonePath, QStringLiteral("Anna"));
    }

    /// From now on calls of this method, with this text among their arguments, are answered after LateMs.
    void holdUp(const QString &member, const QString &text = {})
    {
        method_ = member;
        board.bluez.intercept(method_, [=](const QDBusMessage &call) {
            if (!board.bluez.calls().constLast().text().contains(text))
                return false;
            ++held_;
            QTimer::singleShot(LateMs, Qt::PreciseTimer, lateAnswers_.get(), [=] {
                board.bluez.answer(call);
                ++answered_;
            });
            return true;
        });
    }

    bool plays()
    {
        sent_.clear();
        return phone->configure(sim::SbcFormat{}) && board.player.connectAudio() && phone->start(Mtu)
            && sim::waitFor([&] { return board.control.property(QStringLiteral("Streaming")).toBool(); });
    }

    /// Another process of the speaker asks for something; whether it was answered in time.
    bool demand(const std::function<void()> &ask)
    {
        return inTime(Control, [&] {
            ask();
            return true;
        });
    }

    /// Plays and asks until all that was held up is answered, or, when `dies`, for a while; BlueZ is then gone. Whether
    /// nothing took longer than LimitMs.
    bool goesOn(bool dies)
    {
        constexpr int FewestRounds = 30;
        if (!sim::waitFor([&] { return held_ > 0; })
            || !inTime(Control, [&] { return becomesValid("Connected"); })) // the daemon may only just have started
            return false;
        int round = 0;
        for (; dies ? round < FewestRounds : answered_ < held_; ++round) {
            if ((phone->socket() >= 0 && !takesPacket()) || (!board.bluez.endpoints().isEmpty() && !endpointAnswers())
                || !agentAnswers() || !controlAnswers())
                return false;
            QTest::qWait(PaceMs);
        }
        qInfo("longest, in ms: packet %lld, endpoint %lld, agent %lld, control %lld", longest_[Packet],
              longest_[Endpoint], longest_[Agent], longest_[Control]);
        board.bluez.stopIntercepting(method_);
        if (dies)
            board.bluez.crash();
        return round >= FewestRounds; // else the daemon has waited until BlueZ had answered
    }

    /// BlueZ comes back after its death, and everything works.
    bool recovers()
    {
        lateAnswers_ = std::make_unique<QObject>();
        phone = newPhone();
        if (!becomes("AdapterPresent", false) || !becomes("Connected", false))
            return false;
        board.bluez.restart();
        board.bluez.addAdapter();
        return works();
    }

    /// The adapter is set up, a phone connects, plays and is heard.
    bool works()
    {
        if (!sim::waitFor([&] { return board.bluez.endpoints().size() == 2; }) || !tells(true, false, "", false))
            return false;
        phone->connect();
        return tells(true, true, "Anna", false) && phone->authorize() && plays() && takesPacket() && heardAll();
    }

    bool becomesValid(const char *property)
    {
        return sim::waitFor([&] { return board.control.property(QLatin1String(property)).isValid(); }, 2 * LateMs);
    }
    bool becomes(const char *property, bool value)
    {
        return sim::waitFor([&] { return board.control.property(QLatin1String(property)) == QVariant(value); });
    }
    /// The latest notification is, or becomes, this one.
    bool tells(bool adapter, bool connected, const char *name, bool streaming)
    {
        return sim::waitFor([&] {
            const QStringList targets = board.player.targets();
            return !targets.isEmpty() && targets.last() == notification(adapter, connected, name, streaming);
        });
    }
    bool heardAll() const { return board.player.heard() == sim::decodeSbc(sent_); }

private:
    enum Served { Packet, Endpoint, Agent, Control };

    bool takesPacket()
    {
        static const QList<QByteArray> music = packets(10);
        sent_.append(music.at(sent_.size() % music.size()));
        const auto bytes = board.player.heard().size() + sim::decodeSbc({sent_.constLast()}).size();
        return inTime(Packet, [&] {
            return phone->send(sent_.constLast())
                && sim::waitFor([&] { return board.player.heard().size() >= bytes; }, 2 * LateMs);
        });
    }
    bool endpointAnswers()
    {
        return inTime(Endpoint, [&] {
            return answered(
                board.bluez.callEndpoint(0, QStringLiteral("SelectConfiguration"), {QByteArray::fromHex("ffff0235")}));
        });
    }
    /// Wherever BlueZ knows the agent from: its registration may be what is held up.
    bool agentAnswers()
    {
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.kadobt"), QStringLiteral("/Nodera/BluetoothAgent"), QStringLiteral("org.bluez.Agent1"),
            QStringLiteral("RequestAuthorization"));
        call << QVariant::fromValue(QDBusObjectPath(PhonePath));
        return inTime(Agent, [&] { return answered(board.bluez.call(call)); });
    }
    bool controlAnswers()
    {
        return inTime(Control, [&] { return board.control.property(QStringLiteral("Connected")).isValid(); });
    }

    static bool answered(const QDBusMessage &answer) { return answer.type() == QDBusMessage::ReplyMessage; }

    bool inTime(Served served, const std::function<bool()> &isServed)
    {
        QElapsedTimer clock;
        clock.start();
        const bool yes = isServed();
        const long long ms = clock.elapsed();
        longest_[served] = std::max(longest_[served], ms);
        if (!yes || ms > LimitMs)
            qWarning("%s %s after %lld ms", std::array{"packet", "endpoint", "agent", "control"}[served],
                     yes ? "served" : "not served", ms);
        return yes && ms <= LimitMs;
    }

    std::unique_ptr<QObject> lateAnswers_ = std::make_unique<QObject>();
    QString method_;
    int held_ = 0;
    int answered_ = 0;
    QList<QByteArray> sent_;
    std::array<long long, 4> longest_{};
};

} // namespace boardtest

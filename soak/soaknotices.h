#pragma once

#include "sim/player.h"
#include "soak/soakreport.h"

#include <QList>
#include <QString>

namespace sim {

/// What the player has to be told, in order, held against what it is told.
class SoakNotices {
public:
    SoakNotices(Player &player, SoakReport &report) : player_(player), report_(report) {}

    /// The daemon owes the player this request. While the player is down it may get lost, but it must not come out of
    /// order.
    void owe(const QString &target);
    void setPlayerDown(bool down) { playerDown_ = down; }
    /// The player closes connections without an answer: what the daemon owes it may come several times.
    void setPlayerIsAskedAgain(bool again);

    /// Waits until all that is owed and cannot be lost has arrived, and insists that it is that and nothing else.
    bool settle();

private:
    struct Owed {
        QString target;
        bool mayBeLost;
    };
    /// What has arrived is what is owed, in order, but for what may be lost or come again.
    bool matches() const;
    void explain() const;

    Player &player_;
    SoakReport &report_;
    QList<Owed> owed_;
    QStringList mayComeAgain_;
    bool playerDown_ = false;
    bool askedAgain_ = false;
};

} // namespace sim

#include "soak/soaknotices.h"

#include "sim/waiting.h"

#include <algorithm>
#include <cstdlib>
#include <deque>

namespace sim {

namespace {
// A player that never answers holds requests up: five are under way at a time, and each is given up after 10 s.
constexpr int PatienceMs = 60'000;

// What was owed while the player was down may arrive late, and look like what is owed since. With this many that cannot
// be lost behind it there is no mistaking one for the other; until then the lists stay.
constexpr int CertainAgain = 8;
} // namespace

void SoakNotices::owe(const QString &target)
{
    owed_.append({target, playerDown_});
    if (askedAgain_)
        mayComeAgain_.append(target);
}

void SoakNotices::setPlayerIsAskedAgain(bool again)
{
    askedAgain_ = again;
    mayComeAgain_.clear();
}

bool SoakNotices::settle()
{
    const auto certain = std::count_if(owed_.cbegin(), owed_.cend(), [](const Owed &owed) { return !owed.mayBeLost; });
    const bool nothingCame = certain == 0 && player_.requests().isEmpty();
    if (playerDown_ || nothingCame)
        return true;
    const bool told = waitFor([&] { return player_.requests().size() >= certain && matches(); },
                              !askedAgain_ && player_.requests().size() > owed_.size() ? 0 : PatienceMs);
    if (!told) {
        explain();
        return false;
    }
    const auto lostAtLast = std::find_if(owed_.crbegin(), owed_.crend(),
                                         [](const Owed &owed) { return owed.mayBeLost; });
    if (lostAtLast != owed_.crend() && lostAtLast - owed_.crbegin() < CertainAgain)
        return true;
    report_.notified(static_cast<int>(player_.requests().size()));
    player_.forgetRequests();
    owed_.clear();
    return true;
}

bool SoakNotices::matches() const
{
    // At j: what was owed so far can have become the first j requests.
    const QStringList targets = player_.targets();
    const auto targetOf = [&](size_t j) { return targets.at(static_cast<int>(j) - 1); };
    std::deque<bool> possible(static_cast<size_t>(targets.size()) + 1);
    possible[0] = true;
    for (size_t j = 1; j < possible.size(); ++j)
        possible[j] = possible[j - 1] && mayComeAgain_.contains(targetOf(j));
    for (const Owed &owed : owed_) {
        for (size_t j = possible.size() - 1; j > 0; --j)
            possible[j] = (possible[j] && owed.mayBeLost) || (possible[j - 1] && targetOf(j) == owed.target);
        possible[0] = possible[0] && owed.mayBeLost;
        for (size_t j = 1; j < possible.size(); ++j)
            possible[j] = possible[j] || (possible[j - 1] && mayComeAgain_.contains(targetOf(j)));
    }
    return possible.back();
}

void SoakNotices::explain() const
{
    QStringList owed;
    for (const Owed &request : owed_)
        owed.append(request.mayBeLost ? QStringLiteral("(%1)").arg(request.target) : request.target);
    const QStringList told = player_.targets();
    const QString list = QStringLiteral("\n        ");
    report_.wrongRequests(std::max(1, std::abs(static_cast<int>(owed.size()) - static_cast<int>(told.size()))));
    report_.insist(false,
                   QStringLiteral("the player was to be told") + list + owed.join(list)
                       + QStringLiteral("\n    but was told") + list + told.join(list) + QStringLiteral("\n    "));
}

} // namespace sim

// SPDX-License-Identifier: MIT
#pragma once

#include <QSocketNotifier>

/// A read notifier that calls ready() whenever its descriptor is readable. EventDispatcher calls ready() directly,
/// without Qt's event delivery. Any other event loop reaches ready() through event().
///
/// Not a plain QSocketNotifier, because a wake-up after milliseconds of sleep finds cold caches. Qt's event delivery
/// alone touched 17 of the 54 memory pages of a packet's path, including the decoder's pages. The functions on this
/// path are marked hot for the same reason: the linker then places them in one page instead of eight.
class DirectNotifier : public QSocketNotifier {
    Q_OBJECT
public:
    /// Starts to watch `fd`, which must have no other notifier. The caller keeps ownership of `fd`.
    explicit DirectNotifier(int fd);

    /// Called when the descriptor has data, end of file or an error. Code that runs from here must not call
    /// deleteLater(), because Qt would keep the object until the event loop ends.
    virtual void ready() = 0;

protected:
    bool event(QEvent *event) override;
};

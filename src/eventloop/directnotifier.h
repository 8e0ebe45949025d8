// SPDX-License-Identifier: MIT
#pragma once

#include <QSocketNotifier>

/// Calls ready() whenever its descriptor is readable: the EventDispatcher does so straight, past Qt's event delivery,
/// any other event loop by way of event(). Our own, because a wake-up after milliseconds of sleep finds the caches
/// cold, and Qt's delivery touches 22 of the 54 pages of a packet's whole path, the decoder's included.
///
/// For the same reason the functions of that path are marked hot: it makes the linker lay them together, in one page
/// instead of seven.
class DirectNotifier : public QSocketNotifier {
    Q_OBJECT
public:
    /// Watches `fd`, which nobody else watches, from now on.
    explicit DirectNotifier(int fd);

    /// There is something to read, or the end of it. Whatever this calls must not delete objects with deleteLater(): Qt
    /// would keep them until the event loop ends.
    virtual void ready() = 0;

protected:
    bool event(QEvent *event) override;
};

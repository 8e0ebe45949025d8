// SPDX-License-Identifier: MIT
#include "eventloop/directnotifier.h"

#include <QEvent>

DirectNotifier::DirectNotifier(int fd) : QSocketNotifier(fd, QSocketNotifier::Read)
{
    // The event loop was told of it when it was not one of this class yet.
    setEnabled(false);
    setEnabled(true);
}

bool DirectNotifier::event(QEvent *event)
{
    if (event->type() != QEvent::SockAct)
        return QSocketNotifier::event(event);
    ready();
    return true;
}

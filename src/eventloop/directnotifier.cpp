// SPDX-License-Identifier: MIT
#include "eventloop/directnotifier.h"

#include <QEvent>

DirectNotifier::DirectNotifier(int fd) : QSocketNotifier(fd, QSocketNotifier::Read)
{
    // Register again, because the base constructor registered the notifier before it was a DirectNotifier.
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

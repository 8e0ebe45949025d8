// SPDX-License-Identifier: MIT
#pragma once

#include <QDBusMessage>
#include <QString>

#include <chrono>
#include <optional>
#include <sys/types.h>

namespace doctor {

/// A service of the system bus, and its answer to one call.
struct Peer {
    bool isThere = false; ///< somebody owns the name
    std::optional<uid_t> user;
    uint process = 0;    ///< 0: unknown
    QDBusMessage answer; ///< or the error
};

/// How the system bus looks just now.
struct BusView {
    QString error;                 ///< why nothing could be asked; empty when it could
    bool serviceIsStarted = false; ///< the bus knows how to start org.kadobt
    Peer service;                  ///< org.kadobt; its answer has the properties of the control interface (a{sv})
    Peer bluez;                    ///< org.bluez; its answer has the tree of its objects (a{oa{sa{sv}}})
};

/// How long a service may take to answer: longer than any healthy one does under load.
inline constexpr std::chrono::milliseconds AnswerLimit(2000);

/// Asks the bus and both services. Nothing is started by that, and nothing is changed. It blocks for as long as the bus
/// does, and up to AnswerLimit for the services together.
BusView lookAtBus();

bool isRefusal(const QDBusMessage &answer);
bool isSilence(const QDBusMessage &answer);

/// The error of an answer that is one, else that its types are unexpected.
QString complaint(const QDBusMessage &answer);

} // namespace doctor

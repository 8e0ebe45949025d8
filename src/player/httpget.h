#pragma once

#include "eventloop/filedescriptor.h"

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <QString>
#include <QTimer>

#include <memory>

/// One HTTP GET to a service on the loopback interface, of which only the status matters (RFC 9112). What follows the
/// status is read and forgotten, for a bounded time, so that the service is not cut off in the middle of its answer.
/// The object deletes itself after that.
///
/// Our own, because the network library costs 3 MiB of memory and a quarter of the instructions that a start takes, for
/// a request of one line.
class HttpGet : public QObject {
    Q_OBJECT
public:
    /// Begins to send at once. `target`: path and query, percent-encoded.
    HttpGet(quint16 port, const QByteArray &target, QObject *parent);

Q_SIGNALS:
    /// Once, from the event loop: the request was answered or failed. `error` is empty after a status below 400.
    void finished(const QString &error);

private:
    void sendRequest();
    void readAnswer();
    void finish(const QString &error);
    void leave();

    QByteArray request_; ///< what is still to be sent
    QByteArray answer_;
    FileDescriptor socket_;
    std::unique_ptr<QSocketNotifier> writable_;
    std::unique_ptr<QSocketNotifier> readable_;
    QTimer timeout_;
    bool finished_ = false;
};

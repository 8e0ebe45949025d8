#pragma once

#include <QObject>
#include <QString>

class AbstractManager;
class Codec;
class PlayerRequests;

/// One A2DP sink endpoint: exported on the system bus and registered with an adapter, so that BlueZ offers its codec to
/// phones. Its path, /endpoint/0, /endpoint/1 and so on, is never used again in this process.
class Endpoint : public QObject {
    Q_OBJECT
public:
    /// Registers with the adapter at `adapterPath` and waits for BlueZ's answer, which is not looked at. Codec, manager
    /// and requests outlive the endpoint.
    Endpoint(const QString &adapterPath, Codec &codec, AbstractManager &manager, PlayerRequests &player);
    /// Leaves the bus and ends a configured stream. BlueZ is told nothing: an endpoint ends with its adapter.
    ~Endpoint() override;

private:
    QString path_;
};

#pragma once

#include <QObject>
#include <QString>

class AdapterManager;
class Codec;

/// One A2DP sink endpoint: exported on the system bus and registered with an adapter, so that BlueZ offers its codec to
/// phones.
class Endpoint : public QObject {
    Q_OBJECT
public:
    /// Exports itself at `path`, registers with the adapter at `adapterPath` and waits for BlueZ's answer, which is not
    /// looked at. Codec and manager outlive the endpoint.
    Endpoint(const QString &path, const QString &adapterPath, Codec &codec, AdapterManager &manager);
    /// Leaves the bus and ends a configured stream. BlueZ is told nothing: an endpoint ends with its adapter.
    ~Endpoint() override;

private:
    QString path_;
};

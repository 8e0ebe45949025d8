// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/call.h"

#include <QObject>
#include <QString>

class AdapterManager;
class Codec;

/// One A2DP sink endpoint: exported on the system bus and registered with an adapter, so that BlueZ offers its codec to
/// phones.
class Endpoint : public QObject {
    Q_OBJECT
public:
    /// Exports itself at `path`. Codec and manager outlive the endpoint.
    Endpoint(const QString &path, Codec &codec, AdapterManager &manager);
    /// Leaves the bus and ends a configured stream. BlueZ is told nothing: an endpoint ends with its adapter.
    ~Endpoint() override;

    /// The call that registers it with the adapter at `adapterPath`.
    bluez::Call registration(const QString &adapterPath) const;

private:
    QString path_;
    Codec &codec_;
};

// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/call.h"

#include <QObject>
#include <QString>

class AdapterManager;
class Codec;

/// An A2DP sink endpoint on the system bus. Once it is registered with an adapter, BlueZ offers its codec to phones.
class Endpoint : public QObject {
    Q_OBJECT
public:
    /// Exports the endpoint at `path`. `codec` and `manager` must outlive the endpoint.
    Endpoint(const QString &path, Codec &codec, AdapterManager &manager);
    /// Removes the endpoint from the bus and ends a configured stream. Does not unregister from BlueZ, because an
    /// endpoint ends with its adapter.
    ~Endpoint() override;

    /// Returns the call that registers the endpoint with the adapter at `adapterPath`.
    bluez::Call registration(const QString &adapterPath) const;

private:
    QString path_;
    Codec &codec_;
};

// SPDX-License-Identifier: MIT
#include "bluez/endpoint.h"

#include "bluez/mediaendpoint1.h"
#include "bluez/names.h"
#include "codec/codec.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QVariantMap>

Endpoint::Endpoint(const QString &path, Codec &codec, AdapterManager &manager) : path_(path), codec_(codec)
{
    new MediaEndpoint1(this, codec, manager);
    QDBusConnection::systemBus().registerObject(path_, this, QDBusConnection::ExportAdaptors);
}

Endpoint::~Endpoint()
{
    QDBusConnection::systemBus().unregisterObject(path_);
}

bluez::Call Endpoint::registration(const QString &adapterPath) const
{
    const QVariantMap properties{
        {QStringLiteral("UUID"), QString(bluez::A2dpSinkUuid)},
        {QStringLiteral("Codec"), QVariant::fromValue(codec_.type())},
        {QStringLiteral("Capabilities"), codec_.capabilities()},
    };
    return {adapterPath,
            bluez::MediaInterface,
            QStringLiteral("RegisterEndpoint"),
            {QVariant::fromValue(QDBusObjectPath(path_)), properties},
            bluez::Need::Vital};
}

#include "bluez/endpoint.h"

#include "bluez/call.h"
#include "bluez/mediaendpoint1.h"
#include "bluez/names.h"
#include "codec/codec.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QVariantMap>

Endpoint::Endpoint(const QString &path, const QString &adapterPath, Codec &codec, AdapterManager &manager) : path_(path)
{
    new MediaEndpoint1(this, codec, manager);
    QDBusConnection::systemBus().registerObject(path_, this, QDBusConnection::ExportAdaptors);

    const QVariantMap properties{
        {QStringLiteral("UUID"), QString(bluez::A2dpSinkUuid)},
        {QStringLiteral("Codec"), QVariant::fromValue(codec.type())},
        {QStringLiteral("Capabilities"), codec.capabilities()},
    };
    bluez::call(adapterPath, bluez::MediaInterface, QStringLiteral("RegisterEndpoint"),
                {QVariant::fromValue(QDBusObjectPath(path_)), properties});
}

Endpoint::~Endpoint()
{
    QDBusConnection::systemBus().unregisterObject(path_);
}

#include "endpoint/endpoint.h"

#include "bus/bluezcall.h"
#include "bus/names.h"
#include "codec/codec.h"
#include "endpoint/mediaendpoint1.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QVariantMap>

namespace {

int endpointCounter = 0;

} // namespace

Endpoint::Endpoint(const QString &adapterPath, Codec &codec, AbstractManager &manager, PlayerRequests &player)
    : path_(QStringLiteral("/endpoint/%1").arg(endpointCounter++))
{
    new MediaEndpoint1(this, codec, manager, player);
    QDBusConnection::systemBus().registerObject(path_, this, QDBusConnection::ExportAdaptors);

    const QVariantMap properties{
        {QStringLiteral("UUID"), QString(bus::A2dpSinkUuid)},
        {QStringLiteral("Codec"), QVariant::fromValue(codec.type())},
        {QStringLiteral("Capabilities"), codec.capabilities()},
    };
    bus::callBluez(adapterPath, bus::MediaInterface, QStringLiteral("RegisterEndpoint"),
                   {QVariant::fromValue(QDBusObjectPath(path_)), properties});
}

Endpoint::~Endpoint()
{
    QDBusConnection::systemBus().unregisterObject(path_);
}

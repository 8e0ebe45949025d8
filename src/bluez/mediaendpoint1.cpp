// SPDX-License-Identifier: MIT
#include "bluez/mediaendpoint1.h"

#include "bluez/adaptermanager.h"
#include "bluez/transport.h"
#include "codec/codec.h"
#include "log/log.h"

MediaEndpoint1::MediaEndpoint1(QObject *endpoint, Codec &codec, AdapterManager &manager)
    : QDBusAbstractAdaptor(endpoint), codec_(codec), manager_(manager)
{
}

MediaEndpoint1::~MediaEndpoint1()
{
    teardown();
}

void MediaEndpoint1::SetConfiguration(const QDBusObjectPath &objectPath, const QVariantMap &properties)
{
    const QByteArray configuration = properties.value(QStringLiteral("Configuration")).toByteArray();
    logDebug("MediaEndpoint1::SetConfiguration") << properties;
    logDebug("0SetConfiguration:") << configuration.toHex() << "Codec:" << codec_.formatName();
    codec_.setConfiguration(configuration);
    logDebug("0Sample Rate:") << codec_.sampleRate << "Bit Depth:" << codec_.bitDepth << "Channels:" << codec_.channels;

    if (transport_) {
        // The codec keeps the new values, so a later /Play request names them for the running stream.
        qWarning("0Unexpected SetConfiguration");
        return;
    }
    qDebug("new transport");
    transport_ = std::make_unique<Transport>(objectPath.path(), codec_, manager_.audioServer());
    manager_.setActiveTransport(transport_.get());
}

QByteArray MediaEndpoint1::SelectConfiguration(const QByteArray &capabilities)
{
    logDebug("MediaEndpoint1::SelectConfiguration") << capabilities;
    logDebug("0SelectConfiguration:") << capabilities.toHex() << "Codec:" << codec_.formatName();
    QByteArray selected = codec_.selectConfiguration(capabilities);
    logDebug("0Selected:") << selected.toHex();
    return selected;
}

void MediaEndpoint1::ClearConfiguration(const QDBusObjectPath &path)
{
    logDebug("MediaEndpoint1::ClearConfiguration") << path.path();
    teardown();
}

void MediaEndpoint1::Release()
{
    qDebug("MediaEndpoint1::Release");
}

void MediaEndpoint1::teardown()
{
    if (!transport_)
        return;
    transport_.reset();
    manager_.setActiveTransport(nullptr);
}

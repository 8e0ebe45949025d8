// SPDX-License-Identifier: MIT
#include "bluez/adapter.h"

#include "bluez/agent1.h"
#include "bluez/endpoint.h"
#include "bluez/names.h"
#include "board/speakername.h"
#include "codec/codecaac.h"
#include "codec/codecsbc.h"
#include "log/log.h"

#include <utility>

namespace {

/// Returns the codecs to offer to phones, in the order of registration.
std::vector<std::unique_ptr<Codec>> makeCodecs(bool aacDisabled)
{
    std::vector<std::unique_ptr<Codec>> codecs;
    codecs.push_back(std::make_unique<CodecSBC>());
    if (!aacDisabled)
        codecs.push_back(std::make_unique<CodecAAC>());
    return codecs;
}

} // namespace

Adapter::Adapter(const QString &path, bool aacDisabled, int &endpointCounter, AdapterManager &manager,
                 std::function<void()> ready)
    : path_(path), codecs_(makeCodecs(aacDisabled))
{
    setUp_.start(setUpSteps(endpointCounter, manager), std::move(ready));
}

Adapter::~Adapter() = default;

std::vector<bluez::CallSequence::Step> Adapter::setUpSteps(int &endpointCounter, AdapterManager &manager)
{
    using bluez::Need;
    const auto set = [this](const char *property, const QVariant &value, Need need) {
        return [this, property, value, need] {
            return bluez::SetProperty(bluez::AdapterInterface, path_, QLatin1String(property), value, need);
        };
    };
    std::vector<bluez::CallSequence::Step> steps{
        [this] { return makeRenameCall(); },
        set("Powered", true, Need::Vital),
        set("DiscoverableTimeout", 0U, Need::Optional), // no limit
        set("Discoverable", true, Need::Vital),
        Agent1::registration,
        Agent1::defaultRequest,
    };
    for (const std::unique_ptr<Codec> &codec : codecs_) {
        steps.emplace_back([this, &codec = *codec, &endpointCounter, &manager] {
            const QString path = QStringLiteral("/endpoint/%1").arg(endpointCounter++);
            endpoints_.push_back(std::make_unique<Endpoint>(path, codec, manager));
            return endpoints_.back()->registration(path_);
        });
    }
    return steps;
}

/// Returns the call that sets the alias, or nothing if the speaker has no name.
std::optional<bluez::Call> Adapter::makeRenameCall() const
{
    const QString name = readSpeakerName();
    if (name.isEmpty())
        return {};
    const QString alias = name + QLatin1String(SpeakerNameSuffix);
    logDebug() << alias;
    return bluez::SetProperty(bluez::AdapterInterface, path_, bluez::AliasProperty, alias);
}

void Adapter::ResetAlias()
{
    // One call at a time, so that a fast caller cannot queue calls without limit.
    renameAgain_ = renameCall_.isPending();
    if (renameAgain_)
        return;
    if (const std::optional<bluez::Call> call = makeRenameCall()) {
        renameCall_.start(*call, [this](const QDBusMessage &) {
            if (renameAgain_)
                ResetAlias();
        });
    }
}

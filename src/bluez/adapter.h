// SPDX-License-Identifier: MIT
#pragma once

#include "bluez/callsequence.h"
#include "bluez/pendingcall.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class AdapterManager;
class Codec;
class Endpoint;

/// The speaker's adapter: named, powered, discoverable without time limit, with the pairing agent and one endpoint per
/// codec. The destructor ends the endpoints and their streams and cancels pending calls.
class Adapter {
public:
    /// Starts to set up the adapter at `path`. Calls `ready` after the last step, even if BlueZ refused some steps. If
    /// `aacDisabled`, phones are offered SBC only. `endpointCounter` is the number of the next endpoint and is
    /// incremented, so that no path is used twice. `endpointCounter` and `manager` must outlive the adapter.
    Adapter(const QString &path, bool aacDisabled, int &endpointCounter, AdapterManager &manager,
            std::function<void()> ready);
    ~Adapter();

    const QString &path() const { return path_; }
    /// Sets the adapter's alias to the name of readSpeakerName() and " BT". Does nothing if that name is empty.
    void ResetAlias();

private:
    std::vector<bluez::CallSequence::Step> setUpSteps(int &endpointCounter, AdapterManager &manager);
    std::optional<bluez::Call> makeRenameCall() const;

    QString path_;
    std::vector<std::unique_ptr<Codec>> codecs_; ///< before endpoints_, because codecs must outlive their endpoints
    std::vector<std::unique_ptr<Endpoint>> endpoints_;
    bluez::CallSequence setUp_;
    bluez::PendingCall renameCall_;
    bool renameAgain_ = false; ///< set when ResetAlias() is called while renameCall_ is pending
};

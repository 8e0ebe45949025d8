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

/// The adopted adapter, as a speaker: named, powered, discoverable without time limit, with the pairing agent and an
/// endpoint for each codec. With this object go its endpoints, their streams, and all that BlueZ still owes it.
class Adapter {
public:
    /// Sets up the adapter at `path` and calls `ready` after the last step, whatever BlueZ has refused. `aacDisabled`:
    /// phones are offered SBC only. `endpointCounter` is the number of the next endpoint: no path is used twice. It and
    /// the manager outlive the adapter.
    Adapter(const QString &path, bool aacDisabled, int &endpointCounter, AdapterManager &manager,
            std::function<void()> ready);
    ~Adapter();

    const QString &path() const { return path_; }
    /// Names it after the first line of "/var/data/player_name"; without a name it keeps its own.
    void ResetAlias();

private:
    std::vector<bluez::CallSequence::Step> setUpSteps(int &endpointCounter, AdapterManager &manager);
    std::optional<bluez::Call> naming() const;

    QString path_;
    std::vector<std::unique_ptr<Codec>> codecs_; ///< outlive their endpoints
    std::vector<std::unique_ptr<Endpoint>> endpoints_;
    bluez::CallSequence setUp_;
    bluez::PendingCall renaming_;
    bool renameAgain_ = false; ///< it was asked for again meanwhile
};

// SPDX-License-Identifier: MIT
#pragma once

#include "bench/process.h"
#include "bench/pump.h"
#include "eventloop/filedescriptor.h"
#include "sim/board.h"

namespace bench {

/// Returns the path of the daemon to measure: the environment variable KADO_BT, or this build's daemon when it is not
/// set.
QByteArray daemonProgram();

/// A process to measure, with an active stream. Use pump() to send packets through it. The material must outlive it.
class Contestant {
public:
    virtual ~Contestant() = default;
    Contestant(const Contestant &) = delete;
    Contestant &operator=(const Contestant &) = delete;

    virtual const Process &process() const = 0;
    virtual Pump &pump() = 0;
    /// Streams packets until the process is in steady state.
    void warmUp();

protected:
    Contestant() = default;
};

/// The bare loop (see bareloop.cpp) on two socket pairs.
class BareLoop final : public Contestant {
public:
    explicit BareLoop(const Material &material);
    ~BareLoop() override;
    const Process &process() const override { return *process_; }
    Pump &pump() override { return *pump_; }

private:
    FileDescriptor packets_;
    FileDescriptor pcm_;
    std::unique_ptr<Process> process_;
    std::unique_ptr<Pump> pump_;
};

/// The daemon on its own board, with a streaming phone and a client of the local audio socket. Only one may exist at a
/// time.
class KadoBt final : public Contestant {
public:
    explicit KadoBt(const Material &material, const QList<QByteArray> &environment = {});
    ~KadoBt() override;
    const Process &process() const override { return process_; }
    Pump &pump() override { return *pump_; }

private:
    sim::Board board_;
    sim::Phone phone_;
    Process process_;
    FileDescriptor pcm_;
    std::unique_ptr<Pump> pump_;
};

/// Debian's BlueALSA with its own bus and BlueZ. It writes its PCM to a pipe.
class BlueAlsa final : public Contestant {
public:
    explicit BlueAlsa(const Material &material);
    ~BlueAlsa() override;
    const Process &process() const override { return process_; }
    Pump &pump() override { return *pump_; }

private:
    sim::Bus bus_;
    sim::FakeBluez bluez_;
    sim::Phone phone_;
    Process process_;
    FileDescriptor pcm_;
    FileDescriptor control_;
    std::unique_ptr<Pump> pump_;
};

} // namespace bench

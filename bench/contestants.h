// SPDX-License-Identifier: MIT
#pragma once

#include "bench/process.h"
#include "bench/pump.h"
#include "eventloop/filedescriptor.h"
#include "sim/board.h"

namespace bench {

/// The binary to measure: the environment variable KADO_BT, else the one of this build.
QByteArray daemonProgram();

/// A process with a stream running through it, ready for pump(). The material outlives it.
class Contestant {
public:
    virtual ~Contestant() = default;
    Contestant(const Contestant &) = delete;
    Contestant &operator=(const Contestant &) = delete;

    virtual const Process &process() const = 0;
    virtual Pump &pump() = 0;
    /// Streams a while, until the process does the same for every packet.
    void warmUp();

protected:
    Contestant() = default;
};

/// The bare loop on two socket pairs.
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

/// The daemon on a board of its own, with a phone that streams to it and a client of the local audio socket. There can
/// be one at a time.
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

/// BlueALSA as Debian packages it, with a bus and a BlueZ of its own. Its PCM leaves by a pipe.
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

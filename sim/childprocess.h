// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace sim {

/// A child process that the kernel ends with this process, however this one ends. It has a process group of its own:
/// Ctrl-C in the terminal is for this process, which ends its children in order.
class ChildProcess : public QProcess {
public:
    ChildProcess()
    {
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        setChildProcessModifier(&ChildProcess::prepare);
#endif
    }

private:
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    void setupChildProcess() override;
#endif
    static void prepare()
    {
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
};

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
inline void ChildProcess::setupChildProcess()
{
    prepare();
}
#endif

} // namespace sim

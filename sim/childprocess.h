// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>

#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace sim {

/// A child process that the kernel kills when this process ends, even after a crash. It has its own process group,
/// because Ctrl-C in the terminal must reach only this process, which then ends its children in order.
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

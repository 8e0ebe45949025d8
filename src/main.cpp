// SPDX-License-Identifier: MIT
#include "bluez/adaptermanager.h"
#include "board/kadoinfo.h"
#include "commandline.h"
#include "eventloop/eventdispatcher.h"
#include "eventloop/filedescriptor.h"
#include "eventloop/processsetup.h"
#include "log/log.h"
#include "module/csr8675manager.h"
#include "player/playerrequests.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkProxy>

#include <cstdio>
#include <cstdlib>
#include <memory>

#ifdef KADO_SANITIZED
#include <QSocketNotifier>

#include <csignal>
#include <sanitizer/lsan_interface.h>
#include <sys/signalfd.h>

namespace {

/// A descriptor that SIGTERM makes readable, in place of ending the process. To be called before there are threads.
FileDescriptor terminations()
{
    sigset_t signal;
    ::sigemptyset(&signal);
    ::sigaddset(&signal, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &signal, nullptr);
    return FileDescriptor(::signalfd(-1, &signal, SFD_CLOEXEC));
}

} // namespace
#endif

int main(int argc, char **argv)
{
    occupyStandardDescriptors();
    giveLargeBlocksBack();
#ifdef KADO_SANITIZED
    // What ships ends at once. Here everything is destroyed, and LeakSanitizer tells what was forgotten.
    const FileDescriptor terminated = terminations();
#endif

    // The threads that Qt starts, for the bus and for HTTP, have event loops of their own: Qt's cost less than GLib's.
    qputenv("QT_NO_GLIB", "1");

    // Qt takes options of its own out of argv.
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);

    QCoreApplication::setEventDispatcher(new EventDispatcher); // taken over
    QCoreApplication app(argc, argv);
    // The daemon needs none of Qt's plugins; with Qt 5 some would ask NetworkManager and ConnMan on the bus.
    QCoreApplication::setLibraryPaths({});
    QCoreApplication::setApplicationName(QStringLiteral("kado-bt"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KADO_VERSION));
    const QString name = QCoreApplication::applicationName();
    const QString version = QCoreApplication::applicationVersion();

    const CommandLine commandLine = CommandLine::parse(arguments);
    switch (commandLine.action) {
    case CommandLine::Action::PrintVersion:
        std::printf("%s %s\n", qUtf8Printable(name), qUtf8Printable(version));
        return EXIT_SUCCESS;
    case CommandLine::Action::PrintUsage:
        std::printf("%s", qUtf8Printable(CommandLine::usage(name, version)));
        return -1;
    case CommandLine::Action::Run:
        break;
    }

    installLogOutput(commandLine.log);
    qDebug("0start %s %s", qUtf8Printable(name), qUtf8Printable(version));

    const kadoInfo info;

    // No proxy of the environment's is asked for the player, who is on this board.
    QNetworkAccessManager theNetworkManager;
    theNetworkManager.setProxy(QNetworkProxy::NoProxy);
    PlayerRequests player(theNetworkManager);

    std::unique_ptr<AbstractManager> theManager;
    if (info.isMelody())
        theManager = std::make_unique<csr8675Manager>(player);
    else
        theManager = std::make_unique<AdapterManager>(commandLine.aacDisabled, player);

#ifdef KADO_SANITIZED
    const QSocketNotifier termination(terminated.get(), QSocketNotifier::Read);
    QObject::connect(&termination, &QSocketNotifier::activated, &app, &QCoreApplication::quit);
    const int status = QCoreApplication::exec();
    theManager.reset();
    __lsan_do_leak_check(); // while Qt still has what was to be handed over or deleted
    return status;
#else
    return QCoreApplication::exec();
#endif
}

#include "app/shell/quit_on_signal.h"

#include <QSocketNotifier>

#include <sys/socket.h>
#include <unistd.h>
#include <csignal>

namespace pv {

namespace {

// The write end, for the signal handler: the one piece of global state a
// handler may touch. Only one QuitOnSignal exists per process.
int signalWriteEnd = -1;

void onSignal(int number) {
    const char byte = static_cast<char>(number);
    [[maybe_unused]] const ssize_t written = ::write(signalWriteEnd, &byte, 1);
}

}  // namespace

QuitOnSignal::QuitOnSignal(QObject* parent) : QObject(parent) {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) return;
    signalWriteEnd = fds[0];
    notifier_ = new QSocketNotifier(fds[1], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        if (::read(static_cast<int>(notifier_->socket()), &byte, 1) == 1) emit quitRequested(byte);
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
}

QuitOnSignal::~QuitOnSignal() {
    if (!notifier_) return;
    for (int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, SIG_DFL);
    ::close(signalWriteEnd);
    ::close(static_cast<int>(notifier_->socket()));
    signalWriteEnd = -1;
}

}  // namespace pv

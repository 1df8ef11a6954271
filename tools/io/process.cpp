#include "io/process.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>

namespace vynpkt {
namespace {

// The paths of the temporaries that exist now, for the signal handler. No command has more than
// two.
std::array<std::atomic<const char*>, 2> g_temporaries{};

extern "C" void remove_temporaries(int signal) {
    for (const auto& temporary : g_temporaries) {
        if (const char* path = temporary.load()) {
            (void)::unlink(path);
        }
    }
    (void)::raise(signal);  // ends the process, since SA_RESETHAND has restored the default
}

void replace_in_list(const char* old_entry, const char* new_entry) {
    for (auto& temporary : g_temporaries) {
        const char* expected = old_entry;
        if (temporary.compare_exchange_strong(expected, new_entry)) {
            return;
        }
    }
}

}  // namespace

void occupy_standard_streams() {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);  // gets the lowest free number
    } while (fd >= 0 && fd <= STDERR_FILENO);
    (void)::close(fd);
}

void end_cleanly_on_signals() {
    struct sigaction action {};
    action.sa_handler = remove_temporaries;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    (void)::sigemptyset(&action.sa_mask);
    (void)::sigaction(SIGPIPE, &action, nullptr);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGBUS, SIGXFSZ}) {
        struct sigaction before {};
        (void)::sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) {  // what nohup ignores stays ignored
            (void)::sigaction(signal, &action, nullptr);
        }
    }
}

void remember_temporary(const char* path) { replace_in_list(nullptr, path); }

void forget_temporary(const char* path) { replace_in_list(path, nullptr); }

}  // namespace vynpkt

// SPDX-License-Identifier: GPL-2.0-or-later
//
// `supervisor FOLDER PROGRAM [ARGUMENT...]`: runs the program and records in FOLDER what the device
// sees of it:
//   log      its standard output and standard error
//   status   the status datagrams: seconds since boot, which receiver, text; a line each
//   result   "exit N" or "signal N", "seconds N.NNN", "peak_kib N" (as the kernel counted)
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/device.h"

namespace {

struct receiver {
    const char *name;
    const char *path;
    int fd;
};

double seconds_since_boot()
{
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

bool bind_receiver(receiver *receiver)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, receiver->path, sizeof address.sun_path - 1);
    receiver->fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    return receiver->fd >= 0 &&
           bind(receiver->fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

// Takes whatever is there, so that the queue never fills.
void record_datagrams(const receiver &receiver, FILE *status)
{
    char text[256];
    ssize_t length = 0;
    while ((length = recv(receiver.fd, text, sizeof text, 0)) >= 0)
        fprintf(status, "%.3f %s %.*s\n", seconds_since_boot(), receiver.name,
                static_cast<int>(length), text);
    fflush(status);
}

pid_t start_program(char **command, const std::string &log_path, const sigset_t *signals)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    const int log =
        open(log_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
    if (log < 0 || dup2(log, STDOUT_FILENO) < 0 || dup2(log, STDERR_FILENO) < 0)
        _exit(126);
    sigprocmask(SIG_UNBLOCK, signals, nullptr);
    execv(command[0], command);
    perror(command[0]);
    _exit(127);
}

// Records datagrams until the program has ended; gives its wait status and use of resources.
int follow_program(pid_t child, int child_ended, const std::array<receiver, 2> &receivers,
                   FILE *status, rusage *usage)
{
    int wait_status = 0;
    pid_t ended = 0;
    while (ended == 0) { // the watchdog bounds it
        std::array<pollfd, 3> wanted = {
            {{receivers[0].fd, POLLIN, 0}, {receivers[1].fd, POLLIN, 0}, {child_ended, POLLIN, 0}}};
        poll(wanted.data(), wanted.size(), -1);
        ended = wait4(child, &wait_status, WNOHANG, usage);
        for (const receiver &receiver : receivers)
            record_datagrams(receiver, status);
    }
    return wait_status;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "usage: supervisor FOLDER PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    const std::string folder = argv[1];
    std::array<receiver, 2> receivers = {
        {{"info", status_receivers[0], -1}, {"syscfg", status_receivers[1], -1}}};
    FILE *status = fopen((folder + "/status").c_str(), "we");
    FILE *result = fopen((folder + "/result").c_str(), "we");
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGCHLD);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    const int child_ended = signalfd(-1, &signals, SFD_CLOEXEC);
    if (status == nullptr || result == nullptr || child_ended < 0 ||
        !bind_receiver(&receivers[0]) || !bind_receiver(&receivers[1])) {
        perror("supervisor");
        return 1;
    }
    const double started = seconds_since_boot();
    const pid_t child = start_program(argv + 2, folder + "/log", &signals);
    rusage usage = {};
    const int ended = follow_program(child, child_ended, receivers, status, &usage);
    fprintf(result, "%s %d\nseconds %.3f\npeak_kib %ld\n", WIFEXITED(ended) ? "exit" : "signal",
            WIFEXITED(ended) ? WEXITSTATUS(ended) : WTERMSIG(ended), seconds_since_boot() - started,
            static_cast<long>(usage.ru_maxrss));
    return fclose(result) == 0 ? 0 : 1;
}

#include "Daemon.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Scratch.h"

namespace lumo::bench {

Child::Child(pid_t pid) : pid_(pid) {
    require(pid >= 0, "cannot start a process");
}

Child::~Child() {
    if (pid_ > 0) end(SIGTERM);
}

void Child::end(int signal) {
    ::kill(pid_, signal);
    ::waitpid(std::exchange(pid_, -1), nullptr, 0);
}

Daemon::Daemon(const std::string& name, const std::vector<std::string>& more_arguments)
    : path_(scratchFolder() + "/" + name), arguments_(more_arguments) {
    start();
}

void Daemon::start() {
    int ready[2];
    require(::pipe2(ready, O_CLOEXEC) == 0, "cannot make a pipe");
    std::vector<std::string> line = {LUMO_BENCH_DAEMON, "--listen",   transport(), "--state",
                                     stateDirectory(),  "--ready-fd", "0"};
    line.insert(line.end(), arguments_.begin(), arguments_.end());
    std::vector<char*> argv;
    for (std::string& word : line) argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::dup2(ready[1], STDIN_FILENO);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    child_ = std::make_unique<Child>(pid);
    ::close(ready[1]);
    // Up to the end: the daemon has closed its side then.
    std::string said;
    for (char byte = 0; ::read(ready[0], &byte, 1) == 1;) said.push_back(byte);
    require(said == "ready\n", "the daemon does not start");
    ::close(ready[0]);
}

void Daemon::restart(int signal) {
    child_->end(signal);
    start();
}

}  // namespace lumo::bench

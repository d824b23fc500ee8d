// Other processes of a measurement: children in general, and the daemon.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lumo::bench {

// A child process, ended with SIGTERM when its owner goes.
class Child {
  public:
    explicit Child(pid_t pid);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }
    // Sends it `signal` and waits for its end.
    void end(int signal);

  private:
    pid_t pid_;
};

// The daemon at the socket `name` of the scratch folder, over the state directory `name`-state
// there, made when it is missing. Clients can connect when the constructor has returned.
class Daemon {
  public:
    explicit Daemon(const std::string& name, const std::vector<std::string>& more_arguments = {});
    std::string transport() const { return "unix:" + path_; }
    std::string stateDirectory() const { return path_ + "-state"; }
    pid_t pid() const { return child_->pid(); }

    // Ends it with `signal` and starts it again.
    void restart(int signal);

  private:
    void start();

    std::string path_;
    std::vector<std::string> arguments_;
    std::unique_ptr<Child> child_;
};

}  // namespace lumo::bench

// Serves one device to several clients over a local socket, each in a thread of its own.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <thread>

#include "secureapp/daemon/Channel.h"
#include "secureapp/device/Device.h"

namespace lumo::secureapp {

constexpr size_t kMaxClients = 64;
// From a frame's first byte to its last, and for a client to take an answer.
constexpr std::chrono::milliseconds kFramePatience{10000};

class Server {
  public:
    // Listens at `path`; a socket that nobody serves any more is replaced. Throws ChannelError.
    Server(Device& device, const std::string& path);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Serves until a signal of `signals`, a signalfd, ends it; running calls are finished and
    // answered. SIGUSR1 presses the device's button instead, the others end.
    void run(int signals);

  private:
    struct Client {
        Client(Channel its_channel, uint64_t its_number)
            : channel(std::move(its_channel)), number(its_number) {}

        Channel channel;
        const uint64_t number;
        std::atomic<bool> done{false};
        std::thread thread;
    };

    // Takes one signal; returns whether it ends the server.
    bool readSignal(int signals);
    void accept();
    void removeFinished();
    void serve(Client& client);

    Device& device_;
    const std::string path_;
    const uint64_t life_;
    FileHandle listener_;
    dev_t socket_device_ = 0;
    ino_t socket_inode_ = 0;
    std::list<Client> clients_;
    uint64_t last_client_ = 0;
};

}  // namespace lumo::secureapp

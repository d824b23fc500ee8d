// Serves one device to several clients over a local socket, each in a thread of its own.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <thread>

#include "secureapp/daemon/Channel.h"
#include "secureapp/daemon/Frame.h"
#include "secureapp/daemon/Log.h"
#include "secureapp/daemon/RequestTrace.h"
#include "secureapp/device/Device.h"

namespace lumo::secureapp {

constexpr size_t kMaxClients = 64;
// From a frame's first byte to its last, and for a client to take an answer.
constexpr std::chrono::milliseconds kFramePatience{10000};
// After so long without a request a client has to go when another finds the server full.
constexpr std::chrono::seconds kIdlePatience{60};

class Server {
  public:
    // Listens at `path`; a socket that nobody serves any more is replaced. Throws ChannelError.
    Server(Device& device, const std::string& path, std::chrono::milliseconds idle_patience,
           const Log& log, const RequestTrace& trace);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Does what clients ask for as a rehearsal of faults; refused otherwise.
    void takeFaults() { takes_faults_ = true; }

    // Serves until a signal of `signals`, a signalfd, ends it, which it returns; running calls are
    // finished and answered. SIGUSR1 confirms presence instead, the others end.
    int run(int signals);

  private:
    using Time = std::chrono::steady_clock::time_point;

    struct Client {
        Client(Channel its_channel, uint64_t its_number, uint64_t its_boot_id)
            : channel(std::move(its_channel)), number(its_number), boot_id(its_boot_id) {}

        Channel channel;
        const uint64_t number;
        const uint64_t boot_id;  // the boot that it has connected to
        bool disk_full = false;  // for its next request
        // Since when it has sent nothing; kBusy while a request of it is carried out.
        std::atomic<Time> idle_since{std::chrono::steady_clock::now()};
        std::atomic<bool> done{false};
        bool leaving = false;  // told to go, and not counted any more
        std::thread thread;
    };
    static constexpr Time kBusy = Time::max();

    // Takes one signal; returns it where it ends the server, else 0.
    int readSignal(int signals);
    void accept();
    void admit(Channel channel);
    void refuse(Channel& channel, const std::string& why);
    // Makes room for one more; false where nobody has been idle for long enough.
    bool dropIdle();
    void removeFinished();
    void serve(Client& client);
    Reply answer(const RequestFrame& request, Client& client);
    Reply carryOut(const RequestFrame& request, Client& client);
    Reply rehearse(const RequestFrame& request, Client& client);

    Device& device_;
    const std::string path_;
    const std::chrono::milliseconds idle_patience_;
    const Log& log_;
    const RequestTrace& trace_;
    std::atomic<uint64_t> boot_id_;
    bool takes_faults_ = false;
    FileHandle listener_;
    FileHandle ended_;  // an eventfd, readable once a client's thread has ended
    dev_t socket_device_ = 0;
    ino_t socket_inode_ = 0;
    std::list<Client> clients_;
    uint64_t last_client_ = 0;
};

}  // namespace lumo::secureapp

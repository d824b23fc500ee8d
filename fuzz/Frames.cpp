// The frames between the daemon and its clients, over a socket.
//
// Input: a byte that picks what is done, one that says how the bytes arrive, then the bytes. Beyond
// not crashing: a frame that is written is read as the same frame; what comes within the limits or
// is refused with ChannelError, in time; nothing is read of one that is cut off; the bytes of a
// request with a key are wiped when that is asked for.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "Folder.h"
#include "Property.h"
#include "secureapp/daemon/Frame.h"

namespace {

using lumo::fuzz::Input;
using lumo::fuzz::touch;
using lumo::secureapp::Bytes;
using lumo::secureapp::ByteView;
using lumo::secureapp::Channel;
using lumo::secureapp::ChannelError;
using lumo::secureapp::FileHandle;
using lumo::secureapp::RequestFrame;
using namespace std::chrono_literals;

constexpr auto kPatience = 2ms;
constexpr auto kLongPatience = 2s;

enum Arrival : uint8_t {
    kStaysOpen = 1,  // the other end does not close behind the bytes
    kInPieces = 2,   // they arrive in two pieces
    kSecondToo = 4,  // a second frame is read behind the first
    kWipes = 8,
};

struct Pair {
    Pair() {
        int ends[2];
        REQUIRE(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
        near = FileHandle(ends[0]);
        far = FileHandle(ends[1]);
    }
    FileHandle near;
    FileHandle far;
};

void put(const FileHandle& socket, ByteView bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = ::send(socket.get(), bytes.data() + done, bytes.size() - done,
                                    MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent <= 0) return;  // the socket holds no more
        done += static_cast<size_t>(sent);
    }
}

bool same(ByteView a, ByteView b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

void requireWithinLimits(const RequestFrame& request) {
    REQUIRE(request.level <= KM_SECURITY_LEVEL_STRONGBOX);
    REQUIRE(request.capacity <= lumo::secureapp::kMaxCapacity);
    REQUIRE(request.area.size() <= lumo::secureapp::kMaxAreaBytes);
    REQUIRE(request.body.size() <= lumo::secureapp::kMaxBodyBytes);
    touch(request.area.data(), request.area.size());
    touch(request.body.data(), request.body.size());
}

template <typename Read>
void readHostile(Input& input, Read read) {
    const uint8_t arrival = input.byte();
    const Bytes bytes = input.take<Bytes>(input.size());
    Pair pair;
    Channel channel(std::move(pair.near));
    const size_t first = (arrival & kInPieces) != 0 ? bytes.size() / 2 : bytes.size();
    put(pair.far, ByteView(bytes).sub(0, first));
    std::thread rest;
    if (first != bytes.size()) {
        rest = std::thread([&] { put(pair.far, ByteView(bytes).sub(first)); });
    } else if ((arrival & kStaysOpen) == 0) {
        ::shutdown(pair.far.get(), SHUT_WR);
    }
    try {
        // With nothing at all to read, an open end would be waited for without a limit.
        if (bytes.empty()) channel.stopReading();
        read(channel, arrival);
        if ((arrival & kSecondToo) != 0) {
            if (rest.joinable()) rest.join();
            ::shutdown(pair.far.get(), SHUT_WR);
            read(channel, arrival);
        }
    } catch (const ChannelError&) {
        // refused
    }
    if (rest.joinable()) rest.join();
}

void readRequest(Input& input) {
    readHostile(input, [](Channel& channel, uint8_t arrival) {
        const RequestFrame request = lumo::secureapp::readRequest(channel, kPatience);
        requireWithinLimits(request);
        lumo::secureapp::bringsKeyMaterial(request);
        if ((arrival & kWipes) == 0) return;
        channel.wipeMessage();
        for (const uint8_t byte : request.body) REQUIRE(byte == 0);
        for (const uint8_t byte : request.area) REQUIRE(byte == 0);
    });
}

void readReply(Input& input) {
    readHostile(input, [](Channel& channel, uint8_t /*arrival*/) {
        const auto reply = lumo::secureapp::readReply(channel, kPatience);
        REQUIRE(reply.error <= KM_ERROR_OK && reply.error >= KM_ERROR_UNKNOWN_ERROR);
        REQUIRE(reply.body.size() <= lumo::secureapp::kMaxBodyBytes);
        REQUIRE(reply.reason.size() <= lumo::secureapp::kMaxReasonBytes);
        touch(reply.body.data(), reply.body.size());
        touch(reply.reason.data(), reply.reason.size());
        const auto facts = lumo::secureapp::decodeFacts(reply.body);
        REQUIRE(same(lumo::secureapp::encodeFacts(facts).size() == reply.body.size()
                         ? reply.body.sub(8)
                         : ByteView(),
                     ByteView(lumo::secureapp::encodeFacts(facts)).sub(8)));
    });
}

// Bodies are made of a byte and a length, as they may be larger than an input.
Bytes body(Input& input) {
    const uint8_t fill = input.byte();
    return Bytes(static_cast<size_t>(input.number(3)) % (lumo::secureapp::kMaxBodyBytes + 1), fill);
}

void passRequest(Input& input) {
    RequestFrame sent;
    sent.kind = static_cast<lumo::secureapp::FrameKind>(1 + input.byte() % 3);
    sent.level = input.byte() % 3;
    sent.command = static_cast<uint32_t>(input.number(4));
    sent.capacity = static_cast<uint32_t>(input.number(3) % (lumo::secureapp::kMaxCapacity + 1));
    const Bytes area = input.take<Bytes>(input.byte() % (lumo::secureapp::kMaxAreaBytes + 1));
    const Bytes bytes = body(input);
    sent.area = area;
    sent.body = bytes;
    Pair pair;
    Channel near(std::move(pair.near));
    Channel far(std::move(pair.far));
    std::thread writer([&] {
        lumo::secureapp::writeRequest(near, sent, kLongPatience);
        lumo::secureapp::writeRequest(near, {}, kLongPatience);
    });
    const RequestFrame read = lumo::secureapp::readRequest(far, kLongPatience);
    REQUIRE(read.kind == sent.kind && read.level == sent.level && read.command == sent.command &&
            read.capacity == sent.capacity);
    REQUIRE(same(read.area, area) && same(read.body, bytes));
    // The next one, in a buffer of the usual size again.
    const RequestFrame next = lumo::secureapp::readRequest(far, kLongPatience);
    REQUIRE(next.kind == lumo::secureapp::FrameKind::kHello && next.body.empty());
    writer.join();
    REQUIRE(far.peer().uid == ::geteuid());
}

void passReply(Input& input) {
    lumo::secureapp::Reply sent;
    sent.error = static_cast<keymaster_error_t>(-static_cast<int>(input.twoBytes() % 1001));
    sent.cause = static_cast<lumo::secureapp::Cause>(input.byte() % 3);
    const size_t reason = input.twoBytes();
    sent.reason.assign(reason, 'r');
    sent.body = body(input);
    Pair pair;
    Channel near(std::move(pair.near));
    Channel far(std::move(pair.far));
    std::thread writer([&] { lumo::secureapp::writeReply(near, sent, kLongPatience); });
    const auto read = lumo::secureapp::readReply(far, kLongPatience);
    REQUIRE(read.error == sent.error && read.cause == sent.cause && same(read.body, sent.body));
    REQUIRE(read.reason == sent.reason.substr(0, lumo::secureapp::kMaxReasonBytes));
    writer.join();
}

// To an end that does not read, or is gone.
void sendInVain(Input& input) {
    const uint8_t how = input.byte();
    const Bytes bytes = body(input);
    RequestFrame request;
    request.body = bytes;
    Pair pair;
    Channel near(std::move(pair.near));
    if ((how & 1) != 0) pair.far = FileHandle();
    if ((how & 2) != 0) near.shutdown();
    bool refused = false;
    try {
        lumo::secureapp::writeRequest(near, request, kPatience);
    } catch (const lumo::secureapp::ChannelClosed&) {
        refused = true;
        REQUIRE((how & 3) != 0);
    } catch (const ChannelError&) {
        refused = true;
        REQUIRE((how & 3) == 0 && bytes.size() > 64 << 10);
    }
    REQUIRE(refused || (how & 3) == 0);
}

void facts(Input& input) {
    lumo::secureapp::ServerFacts sent;
    sent.legacy = (input.byte() & 1) != 0;
    sent.keymaster_version = static_cast<uint32_t>(input.number(4));
    sent.ta_minor_version = static_cast<uint32_t>(input.number(4));
    sent.hal_minor_version = static_cast<uint32_t>(input.number(4));
    sent.boot_id = input.number(8);
    const auto read = lumo::secureapp::decodeFacts(lumo::secureapp::encodeFacts(sent));
    REQUIRE(read.legacy == sent.legacy && read.keymaster_version == sent.keymaster_version &&
            read.ta_minor_version == sent.ta_minor_version &&
            read.hal_minor_version == sent.hal_minor_version && read.boot_id == sent.boot_id);
    try {
        lumo::secureapp::decodeFacts(input.take<Bytes>(input.size()));
    } catch (const ChannelError&) {
        // refused
    }
}

// Names of sockets: none of these is served.
void connect(Input& input) {
    const Bytes name = input.take<Bytes>(input.size());
    std::string path = "/nonexistent/" + std::string(name.begin(), name.end());
    if (name.empty()) path.clear();
    if (path.find('\0') != std::string::npos) return;
    try {
        REQUIRE(!lumo::secureapp::isAbandoned(path));
        Channel::connect(path, kPatience);
        BROKEN("nobody serves it");
    } catch (const ChannelError&) {
        // refused
    }
}

// A socket that is served, by the same user, whose clients are accepted or not.
void connectToServer(Input& input) {
    const uint8_t backlog = input.byte() % 2;
    const lumo::test::Folder folder;
    const std::string path = folder / "s";
    FileHandle server(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = lumo::secureapp::socketAddress(path);
    REQUIRE(::bind(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) ==
            0);
    REQUIRE(lumo::secureapp::isAbandoned(path));
    REQUIRE(::listen(server.get(), backlog) == 0);
    std::vector<Channel> clients;
    try {
        for (int i = 0; i < 3; ++i) clients.push_back(Channel::connect(path, kPatience));
        BROKEN("a client too many is refused");
    } catch (const ChannelError&) {
        REQUIRE(clients.size() == backlog + 1U);
    }
    try {
        clients[0].awaitMessage();
        BROKEN("nothing comes");
    } catch (const ChannelError&) {
        // in time
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kWorks[])(Input&) = {readRequest, readReply, passRequest, passReply,
                                          sendInVain,  facts,     connect,     connectToServer};
    Input input(data, size);
    const uint8_t pick = input.byte();
    kWorks[pick % std::size(kWorks)](input);
    return 0;
}

#pragma once

// What the network tests share: a test service, a host serving it, a unique socket path,
// and a scripted peer on raw POSIX sockets that misbehaves in the ways a real one can.

#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <tessel_link/components/test_management.h>
#include <tessel_link/facade/entry_points.h>
#include <tessel_link/net/service_host.h>
#include <tessel_link/net/socket_channel.h>

namespace NetTesting {

// GetData answers "HOST:SIZE"; the host name "block" waits until Release, "fail" fails, "big"
// answers SIZE bytes.
class EchoService : public TestManagement::TestManager {
public:
    Common::Error Test() override { return Common::ErrorSuccess; }
    Common::Error TestCancel() override { return Common::ErrorSuccess; }
    Common::Error GetData(const std::string& hostname, std::uint32_t size, std::string& result) override {
        if (hostname == "block") {
            Blocked.fetch_add(1);
            while (!Released.load()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
        if (hostname == "big") {
            result.assign(size, 'x');
            return Common::ErrorSuccess;
        }
        if (hostname == "fail") {
            return Common::Error(TL_ORIGIN("EchoService::GetData"), 0x9c0044, u"refused");
        }
        result = hostname + ":" + std::to_string(size);
        return Common::ErrorSuccess;
    }
    Common::Error ResumeCancel(std::map<std::string, std::u16string>&) override {
        return Common::ErrorSuccess;
    }

    std::atomic<int> Blocked{0};
    std::atomic<bool> Released{false};
};

inline std::string SocketPath(const std::string& name) {
    return "/tmp/tl_net_" + std::to_string(::getpid()) + "_" + name + ".sock";
}

inline Net::Address UnixAddress(const std::string& name) {
    Net::Address address;
    address.Type = Net::Address::Kind::Unix;
    address.Path = SocketPath(name);
    return address;
}

// A proxy of the test manager over a socket channel.
struct Client {
    explicit Client(const Net::Address& address, Net::ChannelOptions options = {}) {
        Channel = std::make_shared<Net::SocketChannel>(address, options);
        Core::ChannelPointer pointer = Channel;
        if (CreateProxy(188, &pointer, &Component) == Core::ProxyCreated) {
            Manager = Common::QueryInterface<TestManagement::TestManager>(*Component);
        }
    }
    std::shared_ptr<Net::SocketChannel> Channel;
    Core::ComponentSlot Component;
    TestManagement::TestManager* Manager = nullptr;
};

// A peer at a Unix socket that runs `script` on each connection it accepts, one after
// the other, on a thread of its own.
class ScriptedPeer {
public:
    using Script = std::function<void(int fd)>;

    ScriptedPeer(const std::string& path, Script script) : path_(path), script_(std::move(script)) {
        ::unlink(path_.c_str());
        listener_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(listener_, 16) != 0) {
            ADD_FAILURE() << "cannot listen at " << path_;
        }
        thread_ = std::thread([this] { Serve(); });
    }

    ~ScriptedPeer() { Close(); }

    // Stops accepting and removes the socket: the peer is gone, as a killed server is.
    void Close() {
        if (thread_.joinable()) {
            stop_ = true;
            thread_.join();
            ::close(listener_);
            ::unlink(path_.c_str());
        }
    }

    int Accepted() const { return accepted_.load(); }

    // Reads until `count` bytes came or the peer closed; returns what came.
    static std::vector<unsigned char> ReadSome(int fd, std::size_t count) {
        std::vector<unsigned char> bytes(count);
        std::size_t have = 0;
        while (have < count) {
            const ssize_t got = ::read(fd, bytes.data() + have, count - have);
            if (got <= 0) {
                break;
            }
            have += static_cast<std::size_t>(got);
        }
        bytes.resize(have);
        return bytes;
    }
    static void WriteAll(int fd, const std::vector<unsigned char>& bytes) {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t put = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (put <= 0) {
                return;
            }
            done += static_cast<std::size_t>(put);
        }
    }

private:
    void Serve() {
        while (!stop_) {
            pollfd ready{listener_, POLLIN, 0};
            if (::poll(&ready, 1, 20) <= 0) {
                continue;
            }
            const int fd = ::accept(listener_, nullptr, nullptr);
            if (fd < 0) {
                continue;
            }
            accepted_.fetch_add(1);
            script_(fd);
            ::close(fd);
        }
    }

    std::string path_;
    Script script_;
    int listener_ = -1;
    std::atomic<bool> stop_{false};
    std::atomic<int> accepted_{0};
    std::thread thread_;
};

}  // namespace NetTesting

#pragma once

#include <tessel_link/binding/request_channel.h>

#include <iosfwd>

namespace Demo {

// A channel that serves every call in the process: it prints the request it is sent, and
// a small stand-in for the service answers it.
class DemoChannel : public Binding::RequestChannel {
public:
    explicit DemoChannel(std::ostream& out) : out_(out) {}

    Common::Error Send(std::unique_ptr<Binding::Request> request,
                       std::unique_ptr<Binding::RequestJob>& job) override;

private:
    std::ostream& out_;
};

}  // namespace Demo

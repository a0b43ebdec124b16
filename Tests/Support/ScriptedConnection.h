#pragma once

#include <libServices/IServiceConnection.h>

#include <google/protobuf/message.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tests {

// A connection without a peer, for one thread: what it does when it is used is scripted, and what
// it was given to send is kept as the bytes of the wire. Without a script Send succeeds and Receive
// reports a failed connection.
class ScriptedConnection : public Brantel::Services::IServiceConnection {
  public:
    using Message = google::protobuf::Message;

    void Close() override {}

    bool Send(const Message& message) override {
        sent.push_back(message.SerializePartialAsString());
        return Next(sends, true, [&](auto& step) { return step(message); });
    }

    bool Receive(Message& message) override {
        ++received;
        return Next(receives, false, [&](auto& step) { return step(message); });
    }

    // The next Receive gives these bytes, or those of this message.
    void WillReceive(const std::string& bytes) {
        receives.emplace_back([bytes](Message& message) { return message.ParseFromString(bytes); });
    }
    void WillReceive(const Message& message) { WillReceive(message.SerializePartialAsString()); }
    // The next Receive is what the function does.
    void OnReceive(std::function<bool(Message&)> step) { receives.push_back(std::move(step)); }
    void WillFailToReceive() {
        receives.emplace_back([](Message&) { return false; });
    }
    template <class Exception>
    void WillThrowOnReceive(Exception exception) {
        receives.emplace_back([exception](Message&) -> bool { throw exception; });
    }

    // The next Send succeeds, is what the function does, and so on; its message is kept in any
    // case.
    void WillSend() {
        sends.emplace_back([](const Message&) { return true; });
    }
    void OnSend(std::function<bool(const Message&)> step) { sends.push_back(std::move(step)); }
    void WillFailToSend() {
        sends.emplace_back([](const Message&) { return false; });
    }
    template <class Exception>
    void WillThrowOnSend(Exception exception) {
        sends.emplace_back([exception](const Message&) -> bool { throw exception; });
    }

    // What was given to Send, and how often Receive was called.
    std::vector<std::string> sent;
    std::size_t received = 0;

  private:
    template <class Steps, class Run>
    static bool Next(Steps& steps, bool otherwise, Run run) {
        if (steps.empty()) {
            return otherwise;
        }
        auto step = std::move(steps.front());
        steps.pop_front();
        return run(step);
    }

    std::deque<std::function<bool(const Message&)>> sends;
    std::deque<std::function<bool(Message&)>> receives;
};

}  // namespace Brantel::Tests

#pragma once

#include <BrantelStorageApiMessages.pb.h>
#include <libServices/IServiceConnection.h>

#include <google/protobuf/text_format.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Tests {

// The storage at the other end of the connections that it makes: it notes what it is sent and gives
// the answers that were scripted. Without a script every request succeeds with an empty answer, and
// readers and writers get the handles 1, 2, 3... It outlives its connections, for one thread.
class FacadePeer {
  public:
    using Request = BrantelStorageApi::Request;
    using Response = BrantelStorageApi::Response;

    // A connection for a client under test to own.
    std::unique_ptr<Services::IServiceConnection> Connect() {
        return std::make_unique<Connection>(*this);
    }

    // The next request succeeds, with this part of the response as protocol-buffer text.
    void WillAnswer(const std::string& part) { Script("is_success: true " + part); }
    // The next request fails with this text.
    void WillRefuse(const std::string& text) {
        Script("is_success: false exception: \"" + text + "\"");
    }
    // The next Send, or the Receive for the next request, answers false or throws.
    void WillFailToSend() {
        steps.push_back({[] { return false; }, nullptr});
    }
    void WillFailToReceive() {
        steps.push_back({nullptr, [](Response&) { return false; }});
    }
    template <typename Exception>
    void WillThrowOnSend(const Exception& exception) {
        steps.push_back({[exception]() -> bool { throw exception; }, nullptr});
    }
    template <typename Exception>
    void WillThrowOnReceive(const Exception& exception) {
        steps.push_back({nullptr, [exception](Response&) -> bool { throw exception; }});
    }

    // What happened, in order: each request as "TrackStorage_GetTrackSize { trackId: 7 }" or
    // "CLOSE_CONNECTION", and "~" for each connection that was destroyed.
    std::vector<std::string> journal;

  private:
    struct Step {
        std::function<bool()> send;
        std::function<bool(Response&)> receive;
    };

    class Connection : public Services::IServiceConnection {
      public:
        explicit Connection(FacadePeer& peer) : peer(peer) {}
        Connection(const Connection&) = delete;
        Connection& operator=(const Connection&) = delete;
        ~Connection() override { peer.journal.emplace_back("~"); }

        void Close() override { throw std::logic_error("The library never closes a connection"); }
        bool Send(const google::protobuf::Message& message) override {
            return peer.Take(static_cast<const Request&>(message));
        }
        bool Receive(google::protobuf::Message& message) override {
            return peer.Give(static_cast<Response&>(message));
        }

      private:
        FacadePeer& peer;
    };

    void Script(const std::string& text) {
        Response response;
        if (!google::protobuf::TextFormat::ParseFromString(text, &response)) {
            throw std::logic_error("Bad text of a response: " + text);
        }
        steps.push_back({nullptr, [response](Response& to) {
                             to = response;
                             return true;
                         }});
    }

    bool Take(const Request& request) {
        const std::string text = request.ShortDebugString();
        journal.push_back(text.substr(text.find_last_of(' ', text.find('{') - 2) + 1));
        operation = request.operation();
        current = Step();
        // The end of a connection is answered by nobody, so it takes no step of the script.
        if (!steps.empty() && operation != BrantelStorageApi::CLOSE_CONNECTION) {
            current = std::move(steps.front());
            steps.pop_front();
        }
        return current.send == nullptr || current.send();
    }

    bool Give(Response& response) {
        if (current.receive != nullptr) {
            return current.receive(response);
        }
        response.Clear();
        response.set_is_success(true);
        if (operation == BrantelStorageApi::OPERATION_TrackReader_Constructor) {
            response.mutable_trackreader_constructor()->set_object_handle(++lastHandle);
        }
        if (operation == BrantelStorageApi::OPERATION_TrackWriter_Constructor) {
            response.mutable_trackwriter_constructor()->set_object_handle(++lastHandle);
        }
        return true;
    }

    std::deque<Step> steps;
    Step current;
    BrantelStorageApi::Operation operation = BrantelStorageApi::CLOSE_CONNECTION;
    std::uint32_t lastHandle = 0;
};

}  // namespace Brantel::Tests

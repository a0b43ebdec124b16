#pragma once

#include <BrantelStorageApiMessages.pb.h>

namespace Brantel::Services {
class IServiceConnection;
class NativeMutex;
}  // namespace Brantel::Services

namespace BrantelStorageApi {

// One call of a stub: the caller fills `request`, performs the exchange and takes the results out
// of `response`. Made anew for every call; nothing is shared but the connection and its lock.
class Exchange {
  public:
    Exchange(Brantel::Services::IServiceConnection& connection,
             Brantel::Services::NativeMutex& mutex, Operation operation);

    // Sends the request and receives the response, with the mutex held from the one to the other.
    // Returns false when the connection failed: the response then means nothing. Throws
    // std::runtime_error "Could not lock mutex" before anything is sent, "Exception from server: "
    // and the server's text when the server reports a failure, and whatever the connection throws.
    // A mutex that can't be unlocked ends the process.
    bool Perform();

    Request request;
    Response response;

  private:
    Brantel::Services::IServiceConnection& connection;
    Brantel::Services::NativeMutex& mutex;
};

// A caller's message that stands in a request field, instead of a copy of it, for the length of one
// call. Must be destroyed before the request, which would delete the message: declared after the
// Exchange, it is, on every path.
template <class Field, class Question>
class Loan {
  public:
    // Nothing writes to the message but its serialisation, to the cached sizes: these are atomic
    // and always hold the same value, so that several threads may lend one message at once.
    template <class Message>
    Loan(Question& question, const Message& message) noexcept : question(question) {
        Field::Set(question, const_cast<Message*>(&message));
    }
    ~Loan() { Field::Release(question); }
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

  private:
    Question& question;
};

template <class Field, class Question, class Message>
[[nodiscard]] Loan<Field, Question> Lend(Question& question, const Message& message) noexcept {
    return Loan<Field, Question>(question, message);
}

// The request fields that take messages, for Lend.
namespace Field {

#define BRANTEL_LENT_FIELD(Name, accessor)                           \
    struct Name {                                                    \
        template <class Question, class Message>                     \
        static void Set(Question& question, Message* message) {      \
            question.unsafe_arena_set_allocated_##accessor(message); \
        }                                                            \
        template <class Question>                                    \
        static void Release(Question& question) {                    \
            question.unsafe_arena_release_##accessor();              \
        }                                                            \
    }

BRANTEL_LENT_FIELD(Chunk, chunk);
BRANTEL_LENT_FIELD(Duration, duration);
BRANTEL_LENT_FIELD(In, in);
BRANTEL_LENT_FIELD(InfoIn, infoin);
BRANTEL_LENT_FIELD(Keys, keys);
BRANTEL_LENT_FIELD(Out, out);
BRANTEL_LENT_FIELD(Properties, properties);
BRANTEL_LENT_FIELD(Timecode, timecode);
BRANTEL_LENT_FIELD(TrackIds, trackids);
BRANTEL_LENT_FIELD(WorkerIds, workerids);

#undef BRANTEL_LENT_FIELD

}  // namespace Field

}  // namespace BrantelStorageApi

#pragma once

#include "rpc/Exchange.h"
#include "rpc/Operations.h"

namespace BrantelStorageApi {

// The request's part for one operation: its type, and how it is put into a request and taken out.
template <Operation operation>
struct QuestionOf;

#define BRANTEL_CALL(Name, accessor)                                                         \
    template <>                                                                              \
    struct QuestionOf<OPERATION_##Name> {                                                    \
        using Part = Request_##Name;                                                         \
        static void Set(Request& request, Part* part) {                                      \
            request.unsafe_arena_set_allocated_##accessor(part);                             \
        }                                                                                    \
        static void Release(Request& request) { request.unsafe_arena_release_##accessor(); } \
    };

BRANTEL_FOR_EACH_OPERATION(BRANTEL_CALL)

#undef BRANTEL_CALL

// An exchange with the request's part for its operation. The part is a member that stands in the
// request for the length of the call: no memory is taken for it.
template <Operation operation>
class Call : public Exchange {
  public:
    Call(Brantel::Services::IServiceConnection& connection, Brantel::Services::NativeMutex& mutex)
        : Exchange(connection, mutex, operation) {
        QuestionOf<operation>::Set(request, &question);
    }
    ~Call() { QuestionOf<operation>::Release(request); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    typename QuestionOf<operation>::Part question;
};

}  // namespace BrantelStorageApi

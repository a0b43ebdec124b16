#pragma once

#include <cerrno>
#include <cstddef>
#include <functional>
#include <initializer_list>

// Calls of the system that a test answers itself: failures that no test can bring about, and
// moments that none can hit. For programs that link ScriptedCalls and the archive of what they
// test: the linker sends the archive's calls here. What nobody has scripted goes on to the system.
namespace Brantel::Tests {

enum class SystemCall {
    Accept4,
    Close,
    Connect,
    Demangle,
    EpollCtl,
    Fchmodat,
    Fcntl,
    Fstatat,
    Getaddrinfo,
    Getsockopt,
    Listen,
    Poll,
    Pread64,
    PthreadAttrInit,
    Recv,
    Send,
    Setsockopt,
    Socket,
    Sysconf,
    Unlinkat,
    Count
};

// How one call is answered; `system` is the real call. Results are those of the call, 0 for a null
// pointer.
using Answer = std::function<long(const std::function<long()>& system)>;

inline Answer Passes() {
    return [](const std::function<long()>& system) { return system(); };
}

// -1, and this errno.
inline Answer Fails(int error) {
    return [error](const std::function<long()>&) {
        errno = error;
        return -1L;
    };
}

// A result of one's own, with an errno.
inline Answer Returns(long result, int error = 0) {
    return [result, error](const std::function<long()>&) {
        errno = error;
        return result;
    };
}

// The system does it and says another thing.
inline Answer FailsAfterwards(int error) {
    return [error](const std::function<long()>& system) {
        static_cast<void>(system());
        errno = error;
        return -1L;
    };
}

// While one lives, the next calls are answered one after the other, in whichever thread they come;
// those after them go to the system. One for each call at a time.
class ScriptedCall {
  public:
    ScriptedCall(SystemCall call, std::initializer_list<Answer> answers);
    ~ScriptedCall();
    ScriptedCall(const ScriptedCall&) = delete;
    ScriptedCall& operator=(const ScriptedCall&) = delete;

    // How many answers have not been asked for yet.
    std::size_t Left() const;

  private:
    const SystemCall call;
};

}  // namespace Brantel::Tests

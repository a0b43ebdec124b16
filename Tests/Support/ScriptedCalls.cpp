#include "Support/ScriptedCalls.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <deque>
#include <mutex>
#include <type_traits>

namespace Brantel::Tests {
namespace {

std::mutex mutex;
std::array<std::deque<Answer>, static_cast<std::size_t>(SystemCall::Count)> scripts;

std::deque<Answer>& ScriptOf(SystemCall call) {
    return scripts.at(static_cast<std::size_t>(call));
}

// The answer is asked for without the lock: it may wait for another thread.
template <typename System>
std::invoke_result_t<System> Answered(SystemCall call, const System& system) {
    Answer answer;
    {
        const std::lock_guard guard(mutex);
        std::deque<Answer>& script = ScriptOf(call);
        if (!script.empty()) {
            answer = script.front();
            script.pop_front();
        }
    }
    using Result = std::invoke_result_t<System>;
    return answer ? static_cast<Result>(answer([&] { return static_cast<long>(system()); }))
                  : system();
}

}  // namespace

ScriptedCall::ScriptedCall(SystemCall call, std::initializer_list<Answer> answers) : call(call) {
    const std::lock_guard guard(mutex);
    ScriptOf(call) = answers;
}

ScriptedCall::~ScriptedCall() {
    const std::lock_guard guard(mutex);
    ScriptOf(call).clear();
}

std::size_t ScriptedCall::Left() const {
    const std::lock_guard guard(mutex);
    return ScriptOf(call).size();
}

}  // namespace Brantel::Tests

using Brantel::Tests::Answered;
using Brantel::Tests::SystemCall;

// The linker's names for the system's functions and for those that take their place (--wrap).
extern "C" {

int __real_accept4(int fd, sockaddr* address, socklen_t* size, int flags);
int __wrap_accept4(int fd, sockaddr* address, socklen_t* size, int flags) {
    return Answered(SystemCall::Accept4, [&] { return __real_accept4(fd, address, size, flags); });
}

int __real_close(int fd);
int __wrap_close(int fd) {
    return Answered(SystemCall::Close, [&] { return __real_close(fd); });
}

int __real_connect(int fd, const sockaddr* address, socklen_t size);
int __wrap_connect(int fd, const sockaddr* address, socklen_t size) {
    return Answered(SystemCall::Connect, [&] { return __real_connect(fd, address, size); });
}

char* __real___cxa_demangle(const char* name, char* buffer, std::size_t* size, int* status);
char* __wrap___cxa_demangle(const char* name, char* buffer, std::size_t* size, int* status) {
    *status = -1;
    return reinterpret_cast<char*>(Answered(SystemCall::Demangle, [&] {
        return reinterpret_cast<std::intptr_t>(__real___cxa_demangle(name, buffer, size, status));
    }));
}

int __real_epoll_ctl(int poller, int operation, int fd, epoll_event* event);
int __wrap_epoll_ctl(int poller, int operation, int fd, epoll_event* event) {
    return Answered(SystemCall::EpollCtl,
                    [&] { return __real_epoll_ctl(poller, operation, fd, event); });
}

int __real_fchmodat(int folder, const char* path, mode_t mode, int flags);
int __wrap_fchmodat(int folder, const char* path, mode_t mode, int flags) {
    return Answered(SystemCall::Fchmodat,
                    [&] { return __real_fchmodat(folder, path, mode, flags); });
}

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    const bool hasArgument = command != F_GETFL && command != F_GETFD;
    const int argument = hasArgument ? va_arg(arguments, int) : 0;
    va_end(arguments);
    return Answered(SystemCall::Fcntl, [&] { return __real_fcntl(fd, command, argument); });
}

int __real_fstatat(int folder, const char* path, struct stat* status, int flags);
int __wrap_fstatat(int folder, const char* path, struct stat* status, int flags) {
    return Answered(SystemCall::Fstatat,
                    [&] { return __real_fstatat(folder, path, status, flags); });
}

int __real_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                       addrinfo** result);
int __wrap_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                       addrinfo** result) {
    return Answered(SystemCall::Getaddrinfo,
                    [&] { return __real_getaddrinfo(node, service, hints, result); });
}

int __real_getsockopt(int fd, int level, int option, void* value, socklen_t* size);
int __wrap_getsockopt(int fd, int level, int option, void* value, socklen_t* size) {
    return Answered(SystemCall::Getsockopt,
                    [&] { return __real_getsockopt(fd, level, option, value, size); });
}

int __real_listen(int fd, int backlog);
int __wrap_listen(int fd, int backlog) {
    return Answered(SystemCall::Listen, [&] { return __real_listen(fd, backlog); });
}

int __real_poll(pollfd* entries, nfds_t count, int timeout);
int __wrap_poll(pollfd* entries, nfds_t count, int timeout) {
    return Answered(SystemCall::Poll, [&] { return __real_poll(entries, count, timeout); });
}

ssize_t __real_pread64(int fd, void* to, std::size_t size, off64_t offset);
ssize_t __wrap_pread64(int fd, void* to, std::size_t size, off64_t offset) {
    return Answered(SystemCall::Pread64, [&] { return __real_pread64(fd, to, size, offset); });
}

int __real_pthread_attr_init(pthread_attr_t* attributes);
int __wrap_pthread_attr_init(pthread_attr_t* attributes) {
    return Answered(SystemCall::PthreadAttrInit,
                    [&] { return __real_pthread_attr_init(attributes); });
}

ssize_t __real_recv(int fd, void* to, std::size_t size, int flags);
ssize_t __wrap_recv(int fd, void* to, std::size_t size, int flags) {
    return Answered(SystemCall::Recv, [&] { return __real_recv(fd, to, size, flags); });
}

ssize_t __real_send(int fd, const void* from, std::size_t size, int flags);
ssize_t __wrap_send(int fd, const void* from, std::size_t size, int flags) {
    return Answered(SystemCall::Send, [&] { return __real_send(fd, from, size, flags); });
}

int __real_setsockopt(int fd, int level, int option, const void* value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t size) {
    return Answered(SystemCall::Setsockopt,
                    [&] { return __real_setsockopt(fd, level, option, value, size); });
}

int __real_socket(int family, int type, int protocol);
int __wrap_socket(int family, int type, int protocol) {
    return Answered(SystemCall::Socket, [&] { return __real_socket(family, type, protocol); });
}

long __real_sysconf(int name);
long __wrap_sysconf(int name) {
    return Answered(SystemCall::Sysconf, [&] { return __real_sysconf(name); });
}

int __real_unlinkat(int folder, const char* path, int flags);
int __wrap_unlinkat(int folder, const char* path, int flags) {
    return Answered(SystemCall::Unlinkat, [&] { return __real_unlinkat(folder, path, flags); });
}

}  // extern "C"

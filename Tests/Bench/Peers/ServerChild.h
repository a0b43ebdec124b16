#pragma once

#include "Bench/Transport.h"

#include <sys/types.h>

#include <csignal>
#include <string>
#include <vector>

namespace Brantel::Bench {

// A server as a child process. It ends with this object, and with this process however that ends:
// made by the thread that lives longest. What it says goes to the file "log" in its folder.
class ServerChild {
  public:
    // The program by its path, and its arguments. `endSignal` asks it for its end; it is killed
    // when it takes longer than five seconds. Root starts it as `user` when one is given, who then
    // owns the folder. Throws std::runtime_error when it can't be started.
    ServerChild(const std::vector<std::string>& command, const std::string& folder,
                int endSignal = SIGTERM, const std::string& user = "");
    ~ServerChild();
    ServerChild(const ServerChild&) = delete;
    ServerChild& operator=(const ServerChild&) = delete;

    pid_t Process() const { return process; }

    // What it writes to its descriptor 3 until it closes that. Throws std::runtime_error with its
    // log when that is nothing.
    std::string ReadReady();

    // Tries until `attempt` returns true; throws std::runtime_error with the log when the server
    // ends before, or after ten seconds.
    template <typename Attempt>
    void Until(Attempt attempt) {
        for (int tries = 0; !attempt(); ++tries) {
            CheckAndRest(tries);
        }
    }

    // Runs a program to its end; throws std::runtime_error with its log when it fails.
    static void Run(const std::vector<std::string>& command, const std::string& folder,
                    const std::string& user = "");

  private:
    void CheckAndRest(int tries) const;
    std::string Log() const;

    const std::string folder;
    const int endSignal;
    int ready = -1;
    pid_t process = -1;
};

// The path of a program that is installed in one of these folders or of the search path; "": none.
std::string FindProgram(const std::string& name, const std::vector<std::string>& folders = {});

// A port of 127.0.0.1 that nobody listens on now, for servers that have to be told one.
int FreePort();

}  // namespace Brantel::Bench

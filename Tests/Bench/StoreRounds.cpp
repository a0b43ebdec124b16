#include "Bench/StoreRounds.h"

#include "Bench/ScatteredHeap.h"

#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <fstream>
#include <latch>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

namespace Brantel::Bench {

namespace {

using Clock = std::chrono::steady_clock;

float Microseconds(Clock::duration duration) {
    return std::chrono::duration<float, std::micro>(duration).count();
}

double Seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// A process and its children, as they are now.
std::vector<pid_t> FamilyOf(pid_t process) {
    std::vector<pid_t> family{process};
    const std::string own = std::to_string(process);
    std::ifstream children("/proc/" + own + "/task/" + own + "/children");
    for (pid_t child = 0; children >> child;) {
        family.push_back(child);
    }
    return family;
}

double SecondsOf(clockid_t clock) {
    constexpr double nano = 1e-9;
    timespec time{};
    return ::clock_gettime(clock, &time) == 0
               ? static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * nano
               : 0;
}

// Processor time that is used from its beginning on.
class CpuMeter {
  public:
    explicit CpuMeter(pid_t server) {
        for (const pid_t process : FamilyOf(server)) {
            clockid_t clock = 0;
            if (::clock_getcpuclockid(process, &clock) == 0) {
                servers.push_back(clock);
            }
        }
        clientStart = SecondsOf(CLOCK_PROCESS_CPUTIME_ID);
        serverStart = ServerTotal();
    }
    void Read(Sample& sample) const {
        sample.clientSeconds = SecondsOf(CLOCK_PROCESS_CPUTIME_ID) - clientStart;
        sample.serverSeconds = ServerTotal() - serverStart;
    }

  private:
    double ServerTotal() const {
        double total = 0;
        for (const clockid_t clock : servers) {
            total += SecondsOf(clock);
        }
        return total;
    }

    std::vector<clockid_t> servers;
    double clientStart = 0;
    double serverStart = 0;
};

// Calls until the time is over, some times at least.
void CallFor(ICalls& calls, double seconds, std::size_t least, std::vector<float>* times) {
    const Clock::time_point start = Clock::now();
    Clock::time_point before = start;
    for (std::size_t count = 0; count < least || Seconds(before - start) < seconds; ++count) {
        calls.Call();
        const Clock::time_point now = Clock::now();
        if (times != nullptr) {
            times->push_back(Microseconds(now - before));
        }
        before = now;
    }
}

Sample MeasureOne(IPeer& peer, const Workload& workload, double seconds, unsigned placement) {
    constexpr std::size_t leastCalls = 5;
    constexpr double warmPart = 0.2;
    const ScatteredHeap heap(placement);
    const std::unique_ptr<ICalls> calls = peer.Open(workload.task);
    CallFor(*calls, seconds * warmPart, KeptOf(workload.task.size), nullptr);
    Sample sample;
    sample.microseconds.reserve(1U << 17U);
    const CpuMeter meter(peer.Process());
    const Clock::time_point start = Clock::now();
    CallFor(*calls, seconds, leastCalls, &sample.microseconds);
    sample.seconds = Seconds(Clock::now() - start);
    meter.Read(sample);
    sample.calls = static_cast<double>(sample.microseconds.size());
    return sample;
}

// Until a thousand connections have each called some dozen times.
constexpr double crowdWarmSeconds = 0.4;

// The connections of a round, a thread each, that call between two moments.
class Crowd {
  public:
    Crowd(IPeer& peer, const Task& task, std::size_t count)
        : opened(static_cast<std::ptrdiff_t>(count)), times(count), failures(count) {
        for (std::size_t i = 0; i < count; ++i) {
            threads.emplace_back([this, &peer, task, i] { Work(peer, task, i); });
        }
        opened.wait();
    }
    ~Crowd() {
        ended = true;
        Release();
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

    // Lets them call for so long.
    Sample Run(pid_t server, double seconds) {
        Release();
        std::this_thread::sleep_for(std::chrono::duration<double>(crowdWarmSeconds));
        const CpuMeter meter(server);
        const Clock::time_point start = Clock::now();
        const std::uint64_t before = calls;
        counting = true;
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        Sample sample;
        sample.calls = static_cast<double>(calls - before);
        sample.seconds = Seconds(Clock::now() - start);
        meter.Read(sample);
        ended = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
        for (std::size_t i = 0; i < times.size(); ++i) {
            if (failures[i]) {
                std::rethrow_exception(failures[i]);
            }
            sample.microseconds.insert(sample.microseconds.end(), times[i].begin(), times[i].end());
        }
        return sample;
    }

  private:
    void Release() {
        const std::lock_guard lock(mutex);
        released = true;
        change.notify_all();
    }
    void Work(IPeer& peer, const Task& task, std::size_t i) {
        bool isOpen = false;
        try {
            const std::unique_ptr<ICalls> mine = peer.Open(task);
            mine->Call();
            isOpen = true;
            opened.count_down();
            {
                std::unique_lock lock(mutex);
                change.wait(lock, [this] { return released; });
            }
            Repeat(*mine, times[i]);
        } catch (const std::exception&) {
            failures[i] = std::current_exception();
            if (!isOpen) {
                opened.count_down();
            }
        }
    }
    void Repeat(ICalls& mine, std::vector<float>& myTimes) {
        // So many of each connection's times are kept.
        constexpr std::size_t most = 2000;
        while (!ended) {
            const Clock::time_point start = Clock::now();
            mine.Call();
            calls.fetch_add(1, std::memory_order_relaxed);
            if (counting.load(std::memory_order_relaxed) && myTimes.size() < most) {
                myTimes.push_back(Microseconds(Clock::now() - start));
            }
        }
    }

    std::latch opened;
    std::mutex mutex;
    std::condition_variable change;
    bool released = false;  // guarded by the mutex
    std::atomic<bool> counting{false};
    std::atomic<bool> ended{false};
    std::atomic<std::uint64_t> calls{0};
    std::vector<std::vector<float>> times;     // each one's thread
    std::vector<std::exception_ptr> failures;  // likewise
    std::vector<std::thread> threads;
};

// The connections of a round, all of one thread: each asks again when it has its answer.
class CrowdOfOne {
  public:
    CrowdOfOne(IPeer& peer, const Task& task, std::size_t count)
        : poller(::epoll_create1(EPOLL_CLOEXEC)) {
        for (std::size_t i = 0; i < count; ++i) {
            all.push_back({peer.Open(task), {}});
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u64 = i;
            if (::epoll_ctl(poller, EPOLL_CTL_ADD, all.back().calls->Descriptor(), &event) != 0) {
                throw std::runtime_error("A connection can't be waited for");
            }
        }
    }
    ~CrowdOfOne() { ::close(poller); }
    CrowdOfOne(const CrowdOfOne&) = delete;
    CrowdOfOne& operator=(const CrowdOfOne&) = delete;

    // Lets them call for so long.
    Sample Run(pid_t server, double seconds) {
        for (One& one : all) {
            Ask(one);
        }
        CallFor(crowdWarmSeconds, nullptr);
        Sample sample;
        const CpuMeter meter(server);
        const Clock::time_point start = Clock::now();
        sample.calls = CallFor(seconds, &sample.microseconds);
        sample.seconds = Seconds(Clock::now() - start);
        meter.Read(sample);
        return sample;
    }

  private:
    struct One {
        std::unique_ptr<ICalls> calls;
        Clock::time_point asked;
    };

    static void Ask(One& one) {
        one.asked = Clock::now();
        one.calls->Ask();
    }
    // How many calls there were.
    double CallFor(double seconds, std::vector<float>* times) {
        constexpr std::size_t most = 1U << 20U;  // times that are kept
        std::array<epoll_event, 64> ready{};
        double count = 0;
        for (const Clock::time_point start = Clock::now();
             Seconds(Clock::now() - start) < seconds;) {
            const int number = ::epoll_wait(poller, ready.data(), ready.size(), -1);
            for (int i = 0; i < number; ++i) {
                One& one = all[ready.at(static_cast<std::size_t>(i)).data.u64];
                one.calls->Hear();
                if (times != nullptr && times->size() < most) {
                    times->push_back(Microseconds(Clock::now() - one.asked));
                }
                Ask(one);
                ++count;
            }
        }
        return count;
    }

    const int poller;
    std::vector<One> all;
};

Sample MeasureWake(IPeer& peer, const Workload& workload, double seconds) {
    Task waiting = workload.task;
    waiting.work = Work::Wait;
    const std::unique_ptr<ICalls> appender = peer.Open(workload.task);
    const std::unique_ptr<ICalls> waiter = peer.Open(waiting);
    // A pause of 1 to 3 ms before each append, so that the wait for it has begun.
    constexpr double meanPause = 2.2e-3;
    const auto count = static_cast<std::size_t>(std::max(20.0, seconds / meanPause));
    std::vector<Clock::time_point> called(count);
    std::vector<Clock::time_point> waited(count);
    std::vector<Clock::time_point> woken(count);
    std::atomic<std::size_t> done{0};
    std::exception_ptr failure;
    std::thread thread([&] {
        try {
            for (std::size_t i = 0; i < count; ++i) {
                waited[i] = Clock::now();
                waiter->Call();
                woken[i] = Clock::now();
                done = i + 1;
            }
        } catch (const std::exception&) {
            failure = std::current_exception();
            done = count;
        }
    });
    std::minstd_rand random(1);
    Sample sample;
    const CpuMeter meter(peer.Process());
    const Clock::time_point start = Clock::now();
    for (std::size_t i = 0; i < count && done < count; ++i) {
        // A waiter that is late is waited for: servers that keep a few values would lose it one.
        do {
            std::this_thread::sleep_for(std::chrono::microseconds(1000 + random() % 2000));
        } while (done < i);
        called[i] = Clock::now();
        appender->Call();
    }
    thread.join();
    if (failure) {
        std::rethrow_exception(failure);
    }
    sample.seconds = Seconds(Clock::now() - start);
    meter.Read(sample);
    sample.calls = static_cast<double>(count);
    for (std::size_t i = 0; i < count; ++i) {
        if (waited[i] < called[i]) {
            sample.microseconds.push_back(Microseconds(woken[i] - called[i]));
        }
    }
    return sample;
}

// All threads of a process.
void Keep(pid_t process, const cpu_set_t& processors) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(
             "/proc/" + std::to_string(process) + "/task", ignored)) {
        // A thread that has ended meanwhile needs no place.
        ::sched_setaffinity(std::stoi(entry.path().filename().string()), sizeof(processors),
                            &processors);
    }
}

cpu_set_t Processors(Placing placing, bool isServer) {
    const int count = static_cast<int>(::sysconf(_SC_NPROCESSORS_ONLN));
    cpu_set_t processors;
    CPU_ZERO(&processors);
    if (placing == Placing::Free) {
        for (int i = 0; i < count; ++i) {
            CPU_SET(i, &processors);
        }
    } else {
        CPU_SET(placing == Placing::Two && isServer && count > 1 ? 1 : 0, &processors);
    }
    return processors;
}

}  // namespace

void Sample::Add(const Sample& other) {
    microseconds.insert(microseconds.end(), other.microseconds.begin(), other.microseconds.end());
    calls += other.calls;
    seconds += other.seconds;
    clientSeconds += other.clientSeconds;
    serverSeconds += other.serverSeconds;
}

void Place(pid_t server, Placing placing) {
    Keep(::getpid(), Processors(placing, false));
    for (const pid_t process : FamilyOf(server)) {
        Keep(process, Processors(placing, true));
    }
}

Sample MeasureRound(IPeer& peer, const Workload& workload, std::size_t connections, double seconds,
                    unsigned placement) {
    switch (workload.kind) {
        case Workload::Kind::ManyConnections:
            if (workload.oneThread) {
                return CrowdOfOne(peer, workload.task, connections).Run(peer.Process(), seconds);
            }
            return Crowd(peer, workload.task, connections).Run(peer.Process(), seconds);
        case Workload::Kind::Wake: return MeasureWake(peer, workload, seconds);
        default: return MeasureOne(peer, workload, seconds, placement);
    }
}

}  // namespace Brantel::Bench

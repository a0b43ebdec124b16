// Uses each installed library and the generated messages; says what it got. With the path of a
// server's socket it also asks that server.
#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/StorageClientX.h>
#include <libServices/NativeMutex.h>
#include <libTime/TimePoint.h>

#include <iostream>
#include <string>

int main(int argc, char** argv) {
    Brantel::Services::NativeMutex mutex;
    mutex.Enter();
    mutex.Leave();
    BrantelStorageApi::Request request;
    request.set_operation(BrantelStorageApi::CLOSE_CONNECTION);

    Brantel::ProtocolX::StorageClientX client;
    int major = 0;
    int minor = 0;
    int revision = 0;
    client.GetVersion(major, minor, revision);
    const std::string path = argc > 1 ? argv[1] : "no such socket";
    std::cout << major << '.' << minor << '.' << revision << ' '
              << Brantel::Time::TimePoint::Nanoseconds(12500000000).ToString() << ' '
              << request.ByteSizeLong() << ' '
              << (client.ConnectToSlave(path) ? "connected" : "not connected") << '\n';
    return 0;
}

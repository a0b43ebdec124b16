// Uses each installed library and the generated messages; says what it got.
#include <BrantelStorageApiMessages.pb.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libServices/NativeMutex.h>
#include <libTime/TimePoint.h>

#include <iostream>

int main() {
    Brantel::Services::NativeMutex mutex;
    mutex.Enter();
    mutex.Leave();
    BrantelStorageApi::Request request;
    request.set_operation(BrantelStorageApi::CLOSE_CONNECTION);
    std::cout << Brantel::Time::TimePoint::Nanoseconds(12500000000).ToString() << ' '
              << request.ByteSizeLong() << '\n';
    return 0;
}

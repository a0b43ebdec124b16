#pragma once

#include "Local/FlushGate.h"
#include "Local/FlushTimer.h"
#include "Local/LocalOptions.h"

#include <memory>
#include <mutex>

namespace Brantel::Engine {

class File;

// Makes it safe that the segment of a slot is gone, as has been written into its file. Thread-safe.
class SlotMark : public IFlushTarget {
  public:
    // `report` and `meter` are borrowed.
    SlotMark(std::shared_ptr<File> file, const LocalReport& report, FlushMeter& meter);

    // Once: from then on nothing of this touches the file. A failure is told.
    void FlushNow() noexcept override;
    bool IsSafe() const { return gate.IsClean(); }

  private:
    const LocalReport& report;
    FlushGate gate;

    std::mutex mutex;
    std::shared_ptr<File> file;  // guarded by mutex; null: it has been flushed, or that has failed
};

}  // namespace Brantel::Engine
